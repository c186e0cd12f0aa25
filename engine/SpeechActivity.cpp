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
constexpr float SPEECH_RANGE = 30;    // dB
constexpr float FADING = 0.02f;       // dB a frame
constexpr float FADING_AFTER = 0.1f;  // dB a frame

constexpr float SINKING = 7;     // dB; on the tuning set a fifth of the splits less
constexpr float RECENCY = 0.1f;  // share of the newest voiced frame in the recent level

}  // namespace

LevelGate::LevelGate(int start_margin_db, int stay_margin_db)
    : start_margin_db_(start_margin_db), stay_margin_db_(stay_margin_db) {}

bool LevelGate::isSpeech(float level, float noise, bool suspected, bool open) {
    loudest_ = open ? std::max(loudest_ - FADING, level) : loudest_ - FADING_AFTER;
    const float margin = static_cast<float>(open ? stay_margin_db_ : start_margin_db_);
    const bool speech =
        level > noise + margin + (suspected ? 0 : DOUBT) && level > loudest_ - SPEECH_RANGE;
    if (!open)
        recent_ = level;
    else if (speech)
        recent_ += RECENCY * (level - recent_);
    return speech;
}

bool LevelGate::hasSunk() const {
    return recent_ < loudest_ - SINKING;
}

void LevelGate::reset() {
    loudest_ = recent_ = FLOOR_DBFS;
}

SpeechActivity::SpeechActivity(const VadSettings& settings)
    : gate_(settings.start_margin_db, settings.stay_margin_db) {}

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
