// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>

#include "Depth.h"
#include "NoiseSuppressor.h"

namespace {

constexpr int SECOND = 100;  // frames

// Spectra as of white noise, whose level moves from frame to frame or not.
class EngineDepth : public testing::Test {
  protected:
    // `moves_db`: a deviation of the whole frame; that of each bin is noise's own.
    void hear(engine::Depth& depth, int frames, double level_dbfs, double moves_db) {
        for (int frame = 0; frame < frames; ++frame) {
            const double level = 64 + level_dbfs + moves_db * normal_(chance_);
            std::array<int32_t, engine::Depth::BINS> spectrum{};
            for (int32_t& bin : spectrum)
                bin = static_cast<int32_t>(std::pow(10, level / 10) * power_(chance_));
            depth.follow(spectrum);
        }
    }

    static constexpr double LOUD = -30, SOFT = -54, FAINT = -64, STEADY = 0, VOICES = 4;

    engine::Depth depth_{-25, -6};
    std::mt19937 chance_{1};
    std::normal_distribution<double> normal_{0, 1};
    std::exponential_distribution<double> power_{1};
};

TEST_F(EngineDepth, IsTheLeastAtFirst) {
    EXPECT_EQ(depth_.decibels(), -6);
}

TEST_F(EngineDepth, SteadyNoiseIsLoweredAllTheWay) {
    hear(depth_, 2 * SECOND, LOUD, STEADY);
    EXPECT_EQ(depth_.decibels(), -25);
}

TEST_F(EngineDepth, SoftNoiseIsLoweredLess) {
    hear(depth_, 2 * SECOND, SOFT, STEADY);
    EXPECT_NEAR(depth_.decibels(), -15, 1);
    hear(depth_, 4 * SECOND, FAINT, STEADY);
    EXPECT_EQ(depth_.decibels(), -6);
}

TEST_F(EngineDepth, VoicesAreLoweredLeastHoweverLoud) {
    hear(depth_, 10 * SECOND, LOUD, VOICES);
    EXPECT_EQ(depth_.decibels(), -6);
}

TEST_F(EngineDepth, NoiseIsRememberedWhileSomebodySpeaks) {
    hear(depth_, 2 * SECOND, LOUD, STEADY);
    hear(depth_, 4 * SECOND, LOUD + 10, VOICES);
    EXPECT_EQ(depth_.decibels(), -25);
    hear(depth_, 6 * SECOND, LOUD, VOICES);
    EXPECT_EQ(depth_.decibels(), -6);
}

TEST_F(EngineDepth, MovesByTwentyFiveDecibelsASecondAtMost) {
    hear(depth_, 30, LOUD, STEADY);
    const int before = depth_.decibels();
    hear(depth_, 20, LOUD, STEADY);
    EXPECT_NEAR(depth_.decibels(), before - 5, 1);
}

TEST_F(EngineDepth, WhatIsKnownOtherwiseCountsAtOnce) {
    hear(depth_, 20, LOUD, STEADY);
    EXPECT_EQ(depth_.decibels(), -6);
    depth_.know();
    EXPECT_EQ(depth_.decibels(), -25);
}

TEST_F(EngineDepth, WhatIsKnownOtherwiseMustProveSteadyWithinASecond) {
    hear(depth_, 20, LOUD, STEADY);
    depth_.know();
    hear(depth_, SECOND / 2, LOUD, VOICES);
    EXPECT_EQ(depth_.decibels(), -25);
    hear(depth_, 5 * SECOND, LOUD, VOICES);
    EXPECT_EQ(depth_.decibels(), -6);
}

TEST_F(EngineDepth, AStreamBeginsWithNothingKnown) {
    hear(depth_, 2 * SECOND, LOUD, STEADY);
    depth_.reset();
    EXPECT_EQ(depth_.decibels(), -6);
}

// By how much the suppressor lowers white noise in its fifth second. `moves`: how many times as
// loud as the next 100 ms every second 100 ms is.
double attenuation(engine::NoiseSuppressor& suppressor, double deviation, double moves) {
    std::mt19937 chance{1};
    std::normal_distribution<double> normal{0, deviation};
    double before = 0, after = 0;
    for (int frame = 0; frame < 5 * SECOND; ++frame) {
        engine::Samples samples;
        for (int16_t& sample : samples)
            sample =
                static_cast<int16_t>(std::lround((frame / 10 % 2 ? moves : 1) * normal(chance)));
        const bool counts = frame >= 4 * SECOND;
        const auto energy = [&] {
            double sum = 0;
            for (const double sample : samples)
                sum += counts ? sample * sample : 0;
            return sum;
        };
        before += energy();
        suppressor.process(samples);
        after += energy();
    }
    return 10 * std::log10(before / after);
}

TEST(EngineNoiseSuppressor, LowersWhatIsSteadyAndLoudMost) {
    engine::NoiseSuppressor suppressor(-25, -8);
    EXPECT_GT(attenuation(suppressor, 300, 1), 15);
    suppressor.reset();
    EXPECT_LT(attenuation(suppressor, 20, 1), 10);
    suppressor.reset();
    EXPECT_LT(attenuation(suppressor, 300, 4), 8);
}

TEST(EngineNoiseSuppressor, LowersEverythingAlikeIfNotToldToBeGentle) {
    engine::NoiseSuppressor suppressor(-25, -25);
    EXPECT_GT(attenuation(suppressor, 300, 1), 15);
    suppressor.reset();
    EXPECT_GT(attenuation(suppressor, 20, 1), 15);
}

TEST_F(EngineDepth, NothingIsLoweredByMoreThanTheMost) {
    engine::Depth depth(-10, -20);
    EXPECT_EQ(depth.decibels(), -10);
    hear(depth, 2 * SECOND, LOUD, STEADY);
    EXPECT_EQ(depth.decibels(), -10);
}

}  // namespace
