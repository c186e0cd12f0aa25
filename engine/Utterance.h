// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_UTTERANCE_H
#define TOLVANEV_ENGINE_UTTERANCE_H

#include "Settings.h"
#include "VoiceActivity.h"

namespace engine {

// What stands directly before a frame.
enum class Mark { NONE, START, END };

// Where speech begins and ends, given which frames are voiced. Owned by the VAD stage, which resets
// it with each stream.
class Utterance {
  public:
    // Speech is declared at the `onset_frames`th voiced frame in a row, and stays declared for
    // `hangover_frames` unvoiced frames; the next unvoiced frame is non-speech. It is
    // `long_hangover_frames` until `early_frames` frames since START were voiced, and when the
    // voice has not sunk; in between when it has sunk a little. A clear frame makes the count
    // begin anew, another voiced frame takes four off it.
    explicit Utterance(const VadSettings& settings);

    Mark update(const Finding& finding);

    bool isOpen() const { return open_; }
    void reset();

  private:
    Mark awaitStart(const Finding& finding);
    Mark awaitEnd(const Finding& finding);
    int hangover(float sunk) const;

    const VadSettings settings_;
    bool open_ = false;
    int run_ = 0;     // frames that speak for a change
    int voiced_ = 0;  // voiced frames since START
};

}  // namespace engine

#endif
