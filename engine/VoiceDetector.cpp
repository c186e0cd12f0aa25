// SPDX-License-Identifier: MIT
#include "VoiceDetector.h"

#include <algorithm>
#include <cmath>

#include "LevelMeter.h"

namespace engine {

namespace {

// All of these were chosen on the tuning set, amid ranges in which little changes.

// A frame stands out by that many deviations of the noise, in the mean of the bands. So much is
// added to the deviation: the steadiest noise is not to be left by a fraction of a decibel.
constexpr float DEVIATIONS = 0.6f;
constexpr float LEAST_DEVIATION = 1.5f;  // dB
constexpr float FIRST_VARIANCE = 9;      // square dB, until the noise is known

// Consonants and short stops between what stands out are speech, too.
constexpr int HOLD = 10;  // frames

// Levels that stay within so much for half a second are no voice, however loud.
constexpr float STILLNESS = 6;  // dB

// Shares of the way to the latest frame that mean and variance of the noise go. While speech is
// suspected the mean rises more slowly, over a second or so, and the variance stays.
constexpr float PACE = 0.03f;
constexpr float PACE_UP_IN_SPEECH = 0.008f;
constexpr float PACE_DOWN_AT_FIRST = 0.3f;  // it may begin with speech, whose dips are the noise
constexpr size_t FIRST_FRAMES = 100;
constexpr float VARIANCE_PACE = 0.05f;

// Added to each sample. In digital silence the filters' memories would fade to denormal numbers,
// with which the engine took twice its time; no band lets a constant through.
constexpr double OFFSET = 1e-6;

}  // namespace

VoiceDetector::VoiceDetector()
    : bands_{{{{150, 500}, FLOOR_DBFS, FLOOR_DBFS, FIRST_VARIANCE},
              {{500, 1000}, FLOOR_DBFS, FLOOR_DBFS, FIRST_VARIANCE},
              {{1000, 2000}, FLOOR_DBFS, FLOOR_DBFS, FIRST_VARIANCE},
              {{2000, 4000}, FLOOR_DBFS, FLOOR_DBFS, FIRST_VARIANCE}}},
      quiet_(HOLD) {}

bool VoiceDetector::isVoiced(const Samples& samples) {
    measure(samples);
    if (age_ <= FADE_IN_FRAMES) {
        for (Band& band : bands_)
            band.mean = band.level;
        return false;
    }
    quiet_ = standsOut() ? 0 : quiet_ + 1;
    const bool voiced = quiet_ <= HOLD && !isStill();
    learn(voiced);
    return voiced;
}

void VoiceDetector::reset() {
    *this = VoiceDetector();
}

// The bands side by side: a filter's steps wait for each other, those of several filters do not.
void VoiceDetector::measure(const Samples& samples) {
    std::array<double, BANDS> energy{};
    for (const int16_t sample : samples) {
        for (size_t band = 0; band < BANDS; ++band) {
            const double heard = bands_[band].filter.next(sample + OFFSET);
            energy[band] += heard * heard;
        }
    }
    float sum = 0;
    for (size_t band = 0; band < BANDS; ++band) {
        bands_[band].level = levelOf(energy[band]);
        sum += bands_[band].level;
    }
    latest_[age_++ % latest_.size()] = sum / BANDS;
}

bool VoiceDetector::standsOut() const {
    float sum = 0;
    for (const Band& band : bands_)
        sum += (band.level - band.mean) / (std::sqrt(band.variance) + LEAST_DEVIATION);
    return sum > DEVIATIONS * BANDS;
}

bool VoiceDetector::isStill() const {
    const auto [softest, loudest] = std::ranges::minmax(latest_);
    return age_ >= latest_.size() && loudest - softest < STILLNESS;
}

void VoiceDetector::learn(bool voiced) {
    const float up = voiced ? PACE_UP_IN_SPEECH : PACE;
    const float down = age_ <= FIRST_FRAMES ? PACE_DOWN_AT_FIRST : PACE;
    for (Band& band : bands_) {
        const float off = band.level - band.mean;
        if (!voiced)
            band.variance += VARIANCE_PACE * (off * off - band.variance);
        band.mean += (off > 0 ? up : down) * off;
    }
}

}  // namespace engine
