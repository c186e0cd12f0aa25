// SPDX-License-Identifier: MIT
// Recognises a primed start: the very first frames are EOF, TOF and ten frames of averaged noise,
// sent to an engine that was started anew while audio was running.
#ifndef TOLVANEV_ENGINE_PRIMING_H
#define TOLVANEV_ENGINE_PRIMING_H

#include <vector>

#include "Frame.h"

namespace engine {

constexpr size_t kPrimingFrames = 10;  // agreed with the sender

class Priming {
  public:
    // Shows the next input frame; true once, at the tenth frame of noise of a primed start.
    bool isComplete(const AudioFrame& frame);

    const std::vector<Samples>& noise() const { return noise_; }

    // The noise is not needed any longer.
    void forget() { noise_ = {}; }

  private:
    enum class State { ExpectEof, ExpectTof, Collect, Over };

    State next(const AudioFrame& frame);

    State state_ = State::ExpectEof;
    std::vector<Samples> noise_;
};

}  // namespace engine

#endif
