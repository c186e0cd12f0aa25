// SPDX-License-Identifier: MIT
#include "LevelMeter.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

// Share of the way to the level that the noise estimate goes in a frame. It follows a falling
// level within 30 ms, since noise is what remains when speech is not; a rising one within 200 ms
// if the frame is unvoiced, and within seconds if the detector calls it voiced: loud new noise
// may look like speech at first.
constexpr float kFall = 0.3f;
constexpr float kRise = 0.05f;
constexpr float kRiseVoiced = 0.002f;

constexpr float kFullScale = 32768;

float levelOf(const Samples& samples) {
    double energy = 0;
    for (const int16_t sample : samples)
        energy += static_cast<double>(sample) * sample;
    const auto rms = static_cast<float>(std::sqrt(energy / kFrameSamples));
    return rms > 0 ? std::max(20 * std::log10(rms / kFullScale), kFloorDbfs) : kFloorDbfs;
}

}  // namespace

void LevelMeter::update(const Samples& samples, bool voiced) {
    level_ = levelOf(samples);
    const float rise = voiced ? kRiseVoiced : kRise;
    const float pace = fresh_ ? 1 : level_ < noise_ ? kFall : rise;
    noise_ += pace * (level_ - noise_);
    fresh_ = false;
}

void LevelMeter::reset() {
    *this = LevelMeter();
}

}  // namespace engine
