// SPDX-License-Identifier: MIT
#include "Depth.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "Frame.h"

namespace engine {

namespace {

// All of these were chosen on the tuning set.

// Edges of the bands: 150, 500, 1000, 2000 and 4000 Hz.
constexpr std::array<size_t, 5> EDGES = {3, 10, 20, 40, 80};  // bins

// Deviation of the levels from their mean, over all bands. White and pink noise stay below it 95 of
// 100 times, babble lies above it as good as always, and so does a voice.
constexpr float STILLNESS = 1.8f;  // dB

// Noise that has become so soft, if it is white, is not lowered any further.
constexpr float SOFT = -69;  // dBFS

// Share of the way to the level of what is steady that the estimate goes in a frame: a vowel may
// be steady, too.
constexpr float RISE = 0.05f;
constexpr float FALL = 0.2f;

// So long steady noise is believed in while none is heard: somebody may be speaking.
constexpr int BELIEF = 500;  // frames
constexpr int GRACE = 100;   // frames, if it has only been told

// The depth moves slowly: where it changes within an utterance, noise comes and goes.
constexpr float DEEPER = 0.25f;     // dB a frame
constexpr float SHALLOWER = 0.05f;  // dB a frame

// The suppressor's spectra of white noise at full scale.
constexpr float FULL_SCALE = 64;  // dB

}  // namespace

Depth::Depth(int most_db, int least_db)
    : most_db_(most_db),
      least_db_(std::max(most_db, least_db)),
      unproven_(BELIEF),
      noise_(FLOOR_DBFS),
      depth_(static_cast<float>(least_db_)) {}

void Depth::follow(std::span<const int32_t, BINS> spectrum) {
    Levels& levels = latest_[age_++ % FRAMES];
    for (size_t band = 0; band < BANDS; ++band) {
        const auto bins = spectrum.subspan(EDGES[band], EDGES[band + 1] - EDGES[band]);
        double power = 1;
        for (const int32_t bin : bins)
            power += bin;
        const double mean = power / static_cast<double>(bins.size());
        levels[band] = static_cast<float>(10 * std::log10(mean)) - FULL_SCALE;
    }
    if (age_ >= FRAMES && isStill()) {
        const float off = meanLevel() - noise_;
        noise_ += unproven_ >= BELIEF ? off : off * (off > 0 ? RISE : FALL);
        unproven_ = 0;
    } else if (unproven_ < BELIEF) {
        ++unproven_;
    }
    depth_ += std::clamp(wanted() - depth_, -DEEPER, SHALLOWER);
}

void Depth::know() {
    noise_ = meanLevel();
    unproven_ = BELIEF - GRACE;
    depth_ = wanted();
}

int Depth::decibels() const {
    return static_cast<int>(std::lround(depth_));
}

void Depth::reset() {
    *this = Depth(most_db_, least_db_);
}

bool Depth::isStill() const {
    float sum = 0;
    for (size_t band = 0; band < BANDS; ++band) {
        float mean = 0, square = 0;
        for (const Levels& levels : latest_) {
            mean += levels[band] / FRAMES;
            square += levels[band] * levels[band] / FRAMES;
        }
        sum += square - mean * mean;
    }
    return sum < STILLNESS * STILLNESS * BANDS;
}

float Depth::meanLevel() const {
    const size_t heard = std::clamp(age_, size_t{1}, FRAMES);
    float sum = 0;
    for (const Levels& levels : std::span(latest_).first(heard))
        sum += std::accumulate(levels.begin(), levels.end(), 0.0f);
    return sum / static_cast<float>(heard * BANDS);
}

float Depth::wanted() const {
    const float least = static_cast<float>(least_db_), most = static_cast<float>(most_db_);
    if (unproven_ >= BELIEF)
        return least;
    return std::clamp(SOFT - noise_, most, least);
}

}  // namespace engine
