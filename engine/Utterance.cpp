// SPDX-License-Identifier: MIT
#include "Utterance.h"

namespace engine {

Utterance::Utterance(const VadSettings& settings) : settings_(settings) {}

Mark Utterance::update(bool voiced, bool sunk) {
    run_ = voiced == open_ ? 0 : run_ + 1;
    if (open_ && voiced)
        ++voiced_;
    if (run_ < framesToChange(sunk))
        return Mark::NONE;
    open_ = !open_;
    run_ = 0;
    voiced_ = 0;
    return open_ ? Mark::START : Mark::END;
}

// A short first word is more often followed by another one than a long utterance by more of it,
// and toward its end a sentence gets softer.
int Utterance::framesToChange(bool sunk) const {
    if (!open_)
        return settings_.onset_frames;
    const bool goes_on = voiced_ < settings_.early_frames || !sunk;
    return 1 + (goes_on ? settings_.long_hangover_frames : settings_.hangover_frames);
}

void Utterance::reset() {
    open_ = false;
    run_ = 0;
    voiced_ = 0;
}

}  // namespace engine
