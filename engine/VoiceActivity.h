// SPDX-License-Identifier: MIT
// Tells voiced frames from others.
#ifndef TOLVANEV_ENGINE_VOICEACTIVITY_H
#define TOLVANEV_ENGINE_VOICEACTIVITY_H

#include "Frame.h"

namespace engine {

class VoiceActivity {
  public:
    virtual ~VoiceActivity() = default;

    virtual bool isVoiced(const Samples& samples) = 0;

    // Back to the state of a new detector.
    virtual void reset() = 0;
};

}  // namespace engine

#endif
