// SPDX-License-Identifier: MIT
#include "SpeechActivity.h"

#include <algorithm>

namespace engine {

namespace {

// How much more a frame has to stand out if the detector is against it: soft beginnings and
// consonants escape it.
constexpr float DOUBT = 3;  // dB

// What lies that far below the loudest frame is the sound of the room, or breath after the words.
// Without it END comes 60 ms later where there is no noise. The loudest frame fades from memory,
// faster after the utterance, so that a bang or a shout does not shut out what follows.
constexpr float SPEECH_RANGE = 32;    // dB
constexpr float FADING = 0.02f;       // dB a frame
constexpr float FADING_AFTER = 0.1f;  // dB a frame

// How far the voice comes down before a sentence is over. Neither its pitch nor its fall over 100
// to 300 ms, its rhythm, how abruptly it stops, nor all of them together told an end from a pause
// any better on recordings to which they were not fitted.
constexpr float SINKING = 7;     // dB
constexpr float SUNK = 15;       // dB
constexpr float RECENCY = 0.2f;  // share of the newest voiced frame in the recent level

constexpr float CLEAR = 3;  // dB of excess

}  // namespace

LevelGate::LevelGate(int start_margin_db, int stay_margin_db)
    : start_margin_db_(start_margin_db), stay_margin_db_(stay_margin_db) {}

float LevelGate::excess(float level, float noise, bool suspected, bool open) {
    loudest_ = open ? std::max(loudest_ - FADING, level) : loudest_ - FADING_AFTER;
    const float margin =
        static_cast<float>(open ? stay_margin_db_ : start_margin_db_) + (suspected ? 0 : DOUBT);
    const float excess = std::min(level - noise - margin, level - loudest_ + SPEECH_RANGE);
    if (!open)
        recent_ = level;
    else if (excess > 0)
        recent_ += RECENCY * (level - recent_);
    return excess;
}

float LevelGate::sunk() const {
    return std::clamp((loudest_ - recent_ - SINKING) / (SUNK - SINKING), 0.0f, 1.0f);
}

void LevelGate::reset() {
    loudest_ = recent_ = FLOOR_DBFS;
}

SpeechActivity::SpeechActivity(const VadSettings& settings)
    : gate_(settings.start_margin_db, settings.stay_margin_db) {}

Finding SpeechActivity::examine(const Samples& samples, bool open) {
    const bool suspected = detector_.isVoiced(samples);
    meter_.measure(samples);
    const float excess = gate_.excess(meter_.level(), meter_.noise(), suspected, open);
    const bool ready = meter_.isReady();
    meter_.follow(suspected);
    return {ready && excess > 0, ready && excess > CLEAR, gate_.sunk(), meter_.level(),
            meter_.noise()};
}

void SpeechActivity::reset() {
    detector_.reset();
    meter_.reset();
    gate_.reset();
}

}  // namespace engine
