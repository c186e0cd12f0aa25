// SPDX-License-Identifier: MIT
#include "LevelMeter.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

// Share of the way to the level that the noise estimate goes in a frame. It follows a falling
// level within 30 ms, since noise is what remains when speech is not; a rising one within 200 ms
// if the frame is no speech, and within ten seconds if it is suspected: loud new noise may look
// like speech at first. Chosen on the tuning set.
constexpr float FALL = 0.3f;
constexpr float RISE = 0.05f;
constexpr float RISE_SUSPECTED = 0.001f;

constexpr double FULL_SCALE = 32768;

}  // namespace

float levelOf(double energy) {
    const double power = energy / FRAME_SAMPLES / (FULL_SCALE * FULL_SCALE);
    return std::max(FLOOR_DBFS, static_cast<float>(10 * std::log10(power + 1e-12)));
}

void LevelMeter::measure(const Samples& samples) {
    double energy = 0;
    for (const int16_t sample : samples) {
        const double heard = high_pass_.next(sample);
        energy += heard * heard;
    }
    level_ = levelOf(energy);
}

void LevelMeter::follow(bool suspected) {
    const float rise = suspected ? RISE_SUSPECTED : RISE;
    const float pace = !isReady() ? 1 : level_ < noise_ ? FALL : rise;
    noise_ += pace * (level_ - noise_);
    ++age_;
}

bool LevelMeter::isReady() const {
    return age_ >= FADE_IN_FRAMES;
}

void LevelMeter::reset() {
    *this = LevelMeter();
}

}  // namespace engine
