// SPDX-License-Identifier: MIT
#include "Priming.h"

namespace engine {

bool Priming::isComplete(const AudioFrame& frame) {
    if (state_ == State::OVER)
        return false;
    state_ = next(frame);
    return state_ == State::OVER && noise_.size() == PRIMING_FRAMES;
}

Priming::State Priming::next(const AudioFrame& frame) {
    if (state_ == State::EXPECT_EOF && frame.type == FRAME_EOF)
        return State::EXPECT_TOF;
    if (state_ == State::EXPECT_TOF && frame.type == FRAME_TOF)
        return State::COLLECT;
    if (state_ == State::COLLECT && frame.type == FRAME_DATA) {
        noise_.push_back(frame.samples);
        return noise_.size() < PRIMING_FRAMES ? State::COLLECT : State::OVER;
    }
    return State::OVER;
}

}  // namespace engine
