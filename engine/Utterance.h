// SPDX-License-Identifier: MIT
// Where speech begins and ends, given which frames are voiced.
#ifndef TOLVANEV_ENGINE_UTTERANCE_H
#define TOLVANEV_ENGINE_UTTERANCE_H

#include "Settings.h"

namespace engine {

// What stands directly before a frame.
enum class Mark { None, Start, End };

class Utterance {
  public:
    // Speech is declared at the `onsetFrames`th voiced frame in a row, and stays declared for
    // `hangoverFrames` unvoiced frames in a row; the next unvoiced frame is non-speech. It is
    // `longHangoverFrames` until `earlyFrames` frames since START were voiced, and when the voice
    // has not sunk: then it is likely to go on.
    explicit Utterance(const VadSettings& settings);

    Mark update(bool voiced, bool sunk);

    bool isOpen() const { return open_; }
    void reset();

  private:
    int framesToChange(bool sunk) const;

    const VadSettings settings_;
    bool open_ = false;
    int run_ = 0;     // frames in a row that speak for a change
    int voiced_ = 0;  // voiced frames since START
};

}  // namespace engine

#endif
