// SPDX-License-Identifier: MIT
#include "LevelMeter.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

// Share of the way to the level that the noise estimate goes in a frame. It follows a falling
// level within 30 ms, since noise is what remains when speech is not; a rising one within 200 ms
// if the frame is no speech, and within ten seconds if it is suspected: loud new noise may look
// like speech at first. Chosen on the bench's tuning set.
constexpr float kFall = 0.3f;
constexpr float kRise = 0.05f;
constexpr float kRiseSuspected = 0.001f;

constexpr double kFullScale = 32768;

}  // namespace

float levelOf(double energy) {
    const double power = energy / kFrameSamples / (kFullScale * kFullScale);
    return std::max(kFloorDbfs, static_cast<float>(10 * std::log10(power + 1e-12)));
}

void LevelMeter::measure(const Samples& samples) {
    double energy = 0;
    for (const int16_t sample : samples) {
        const double heard = highPass_.next(sample);
        energy += heard * heard;
    }
    level_ = levelOf(energy);
}

void LevelMeter::follow(bool suspected) {
    const float rise = suspected ? kRiseSuspected : kRise;
    const float pace = !isReady() ? 1 : level_ < noise_ ? kFall : rise;
    noise_ += pace * (level_ - noise_);
    ++age_;
}

bool LevelMeter::isReady() const {
    return age_ >= kFadeInFrames;
}

void LevelMeter::reset() {
    *this = LevelMeter();
}

}  // namespace engine
