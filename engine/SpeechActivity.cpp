// SPDX-License-Identifier: MIT
#include "SpeechActivity.h"

#include <algorithm>

namespace engine {

namespace {

// How much more a frame has to stand out if the detector is against it: soft beginnings and
// consonants escape it.
constexpr float kDoubt = 3;  // dB

// What lies that far below the loudest frame is the sound of the room, or breath after the words.
// Without it END comes 60 ms later where there is no noise. The loudest frame fades from memory,
// faster after the utterance, so that a bang or a shout does not shut out what follows.
constexpr float kSpeechRange = 30;    // dB
constexpr float kFading = 0.02f;      // dB a frame
constexpr float kFadingAfter = 0.1f;  // dB a frame

constexpr float kSinking = 7;     // dB; on the tuning set a fifth of the splits less
constexpr float kRecency = 0.1f;  // share of the newest voiced frame in the recent level

}  // namespace

LevelGate::LevelGate(int startMarginDb, int stayMarginDb)
    : startMarginDb_(startMarginDb), stayMarginDb_(stayMarginDb) {}

bool LevelGate::isSpeech(float level, float noise, bool suspected, bool open) {
    loudest_ = open ? std::max(loudest_ - kFading, level) : loudest_ - kFadingAfter;
    const float margin = static_cast<float>(open ? stayMarginDb_ : startMarginDb_);
    const bool speech =
        level > noise + margin + (suspected ? 0 : kDoubt) && level > loudest_ - kSpeechRange;
    if (!open)
        recent_ = level;
    else if (speech)
        recent_ += kRecency * (level - recent_);
    return speech;
}

bool LevelGate::hasSunk() const {
    return recent_ < loudest_ - kSinking;
}

void LevelGate::reset() {
    loudest_ = recent_ = kFloorDbfs;
}

SpeechActivity::SpeechActivity(const VadSettings& settings)
    : gate_(settings.startMarginDb, settings.stayMarginDb) {}

Finding SpeechActivity::examine(const Samples& samples, bool open) {
    const bool suspected = detector_.isVoiced(samples);
    meter_.measure(samples);
    const bool voiced =
        gate_.isSpeech(meter_.level(), meter_.noise(), suspected, open) && meter_.isReady();
    meter_.follow(suspected);
    return {voiced, gate_.hasSunk(), meter_.level(), meter_.noise()};
}

void SpeechActivity::reset() {
    detector_.reset();
    meter_.reset();
    gate_.reset();
}

}  // namespace engine
