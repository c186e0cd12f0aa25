// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_VOICEACTIVITY_H
#define TOLVANEV_ENGINE_VOICEACTIVITY_H

#include "Frame.h"

namespace engine {

// What is found out about one frame; levels in dBFS.
struct Finding {
    bool voiced = false;
    bool clear = false;  // voiced beyond doubt
    float sunk = 0;      // how far the voice has come down from its loudest: 0 not, 1 to its end
    float level = FLOOR_DBFS;
    float noise = FLOOR_DBFS;
};

// Tells voiced frames from others. Owned by the VAD stage, which shows it every data frame once.
class VoiceActivity {
  public:
    virtual ~VoiceActivity() = default;

    // `open`: an utterance is under way; while it is, softer speech counts.
    virtual Finding examine(const Samples& samples, bool open) = 0;

    // Back to the state at the beginning of a stream.
    virtual void reset() = 0;
};

}  // namespace engine

#endif
