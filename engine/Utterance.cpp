// SPDX-License-Identifier: MIT
#include "Utterance.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

// Frames of silence that are forgiven for one that is hardly voiced. What the suppressor leaves of
// noise looks like that now and then; it would put END off by a whole hangover each time.
constexpr int REDEEMED = 4;

}  // namespace

Utterance::Utterance(const VadSettings& settings) : settings_(settings) {}

Mark Utterance::update(const Finding& finding) {
    return open_ ? awaitEnd(finding) : awaitStart(finding);
}

Mark Utterance::awaitStart(const Finding& finding) {
    run_ = finding.voiced ? run_ + 1 : 0;
    if (run_ < settings_.onset_frames)
        return Mark::NONE;
    open_ = true;
    run_ = 0;
    return Mark::START;
}

Mark Utterance::awaitEnd(const Finding& finding) {
    if (finding.voiced) {
        ++voiced_;
        run_ = finding.clear ? 0 : std::max(0, run_ - REDEEMED);
        return Mark::NONE;
    }
    if (++run_ <= hangover(finding.sunk))
        return Mark::NONE;
    reset();
    return Mark::END;
}

// A short first word is more often followed by another one than a long utterance by more of it,
// and toward its end a sentence gets softer.
int Utterance::hangover(float sunk) const {
    if (voiced_ < settings_.early_frames)
        return settings_.long_hangover_frames;
    const float shorter =
        static_cast<float>(settings_.long_hangover_frames - settings_.hangover_frames);
    return settings_.long_hangover_frames - static_cast<int>(std::lround(sunk * shorter));
}

void Utterance::reset() {
    open_ = false;
    run_ = 0;
    voiced_ = 0;
}

}  // namespace engine
