// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_PRIMING_H
#define TOLVANEV_ENGINE_PRIMING_H

#include <vector>

#include "Frame.h"

namespace engine {

constexpr size_t PRIMING_FRAMES = 10;  // agreed with the sender

// Recognises a primed start: the very first frames are EOF, TOF and ten frames of averaged noise,
// sent to an engine that was started anew while audio was running. The MMSE stage shows it every
// frame, and asks for the noise when it is complete.
class Priming {
  public:
    // Shows the next input frame; true once, at the tenth frame of noise of a primed start.
    bool isComplete(const AudioFrame& frame);

    const std::vector<Samples>& noise() const { return noise_; }

    // The noise is not needed any longer.
    void forget() { noise_ = {}; }

  private:
    enum class State { EXPECT_EOF, EXPECT_TOF, COLLECT, OVER };

    State next(const AudioFrame& frame);

    State state_ = State::EXPECT_EOF;
    std::vector<Samples> noise_;
};

}  // namespace engine

#endif
