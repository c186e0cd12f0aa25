// SPDX-License-Identifier: MIT
#include "Utterance.h"

namespace engine {

Utterance::Utterance(int onsetFrames, int hangoverFrames)
    : onsetFrames_(onsetFrames), hangoverFrames_(hangoverFrames) {}

Mark Utterance::update(bool voiced) {
    run_ = voiced == open_ ? 0 : run_ + 1;
    const int needed = open_ ? hangoverFrames_ + 1 : onsetFrames_;
    if (run_ < needed)
        return Mark::None;
    open_ = !open_;
    run_ = 0;
    return open_ ? Mark::Start : Mark::End;
}

void Utterance::reset() {
    open_ = false;
    run_ = 0;
}

}  // namespace engine
