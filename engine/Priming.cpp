// SPDX-License-Identifier: MIT
#include "Priming.h"

namespace engine {

bool Priming::isComplete(const AudioFrame& frame) {
    if (state_ == State::Over)
        return false;
    state_ = next(frame);
    return state_ == State::Over && noise_.size() == kPrimingFrames;
}

Priming::State Priming::next(const AudioFrame& frame) {
    if (state_ == State::ExpectEof && frame.type == kBottomOfStream)
        return State::ExpectTof;
    if (state_ == State::ExpectTof && frame.type == kTopOfStream)
        return State::Collect;
    if (state_ == State::Collect && frame.type == kData) {
        noise_.push_back(frame.samples);
        return noise_.size() < kPrimingFrames ? State::Collect : State::Over;
    }
    return State::Over;
}

}  // namespace engine
