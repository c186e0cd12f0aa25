// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "LevelMeter.h"
#include "SpeechActivity.h"

namespace {

using engine::FLOOR_DBFS;

// A tone whose peak is `peak`; only tones of whole periods a frame join without a click.
engine::Samples tone(double frequency_hz, double peak) {
    engine::Samples samples;
    for (size_t n = 0; n < samples.size(); ++n)
        samples[n] = static_cast<int16_t>(
            std::lround(peak * std::sin(2 * std::numbers::pi * frequency_hz *
                                        static_cast<double>(n) / engine::SAMPLE_RATE_HZ)));
    return samples;
}

// The level of a tone after a second of it.
float levelOf(double frequency_hz, double peak) {
    engine::LevelMeter meter;
    for (int frame = 0; frame < 100; ++frame)
        meter.measure(tone(frequency_hz, peak));
    return meter.level();
}

// Shows the meter so many frames of a 1 kHz tone at a level in dBFS.
void follow(engine::LevelMeter& meter, double dbfs, int frames, bool suspected = false) {
    for (int frame = 0; frame < frames; ++frame) {
        meter.measure(tone(1000, 32768 * std::numbers::sqrt2 * std::pow(10, dbfs / 20)));
        meter.follow(suspected);
    }
}

TEST(EngineLevelMeter, LevelIsThatOfTheRootMeanSquare) {
    EXPECT_NEAR(levelOf(1000, 32767), -3.0, 0.05);
    EXPECT_NEAR(levelOf(1000, 3276.7), -23.0, 0.05);
}

TEST(EngineLevelMeter, TonesBelowSpeechHardlyCount) {
    EXPECT_LT(levelOf(100, 32767), levelOf(1000, 32767) - 7);
    EXPECT_NEAR(levelOf(300, 32767), levelOf(1000, 32767), 0.5);
}

TEST(EngineLevelMeter, SilenceIsTheFloor) {
    EXPECT_EQ(levelOf(1000, 0), FLOOR_DBFS);
}

TEST(EngineLevelMeter, EstimateBeginsWithTheThirdFrame) {
    engine::LevelMeter meter;
    follow(meter, -60, 2);
    EXPECT_FALSE(meter.isReady());
    follow(meter, -40, 1);
    EXPECT_TRUE(meter.isReady());
    EXPECT_NEAR(meter.noise(), -40, 0.2);
}

TEST(EngineLevelMeter, NoiseFallsAtOnceAndRisesSlowly) {
    engine::LevelMeter meter;
    follow(meter, -40, 10);
    follow(meter, -50, 10);
    EXPECT_NEAR(meter.noise(), -50, 0.5);
    follow(meter, -40, 10);
    EXPECT_LT(meter.noise(), -43);
    follow(meter, -40, 100);
    EXPECT_NEAR(meter.noise(), -40, 0.5);
}

TEST(EngineLevelMeter, SuspectedSpeechHardlyRaisesTheNoise) {
    engine::LevelMeter meter;
    follow(meter, -50, 10);
    follow(meter, -20, 100, true);
    EXPECT_LT(meter.noise(), -45);
}

TEST(EngineLevelMeter, ResetForgetsEverything) {
    engine::LevelMeter meter;
    follow(meter, -20, 10);
    meter.reset();
    EXPECT_FALSE(meter.isReady());
    EXPECT_EQ(meter.noise(), FLOOR_DBFS);
}

class EngineLevelGate : public testing::Test {
  protected:
    static constexpr float NOISE = -60;

    bool starts(float margin, bool suspected) {
        return gate_.excess(NOISE + margin, NOISE, suspected, false) > 0;
    }
    bool stays(float margin, bool suspected) {
        return gate_.excess(NOISE + margin, NOISE, suspected, true) > 0;
    }

    engine::LevelGate gate_{10, 5};
};

TEST_F(EngineLevelGate, StartNeedsMoreThanStaying) {
    EXPECT_FALSE(starts(10, true));
    EXPECT_TRUE(starts(10.1f, true));
    EXPECT_FALSE(stays(5, true));
    EXPECT_TRUE(stays(5.1f, true));
}

TEST_F(EngineLevelGate, DetectorsDoubtCostsThreeDecibels) {
    EXPECT_FALSE(starts(13, false));
    EXPECT_TRUE(starts(13.1f, false));
    EXPECT_FALSE(stays(8, false));
    EXPECT_TRUE(stays(8.1f, false));
}

TEST_F(EngineLevelGate, WhatIsThirtyTwoDecibelsBelowTheLoudestIsNoSpeech) {
    EXPECT_TRUE(stays(50, true));
    EXPECT_TRUE(stays(18.5f, true));
    EXPECT_FALSE(stays(17.5f, true));
}

TEST_F(EngineLevelGate, LoudestFadesFasterBetweenUtterances) {
    stays(50, true);
    for (int frame = 0; frame < 50; ++frame)
        EXPECT_FALSE(starts(12.5f, true)) << frame;  // 18 dB less 0.1 a frame
    for (int frame = 0; frame < 10; ++frame)
        starts(12.5f, true);
    EXPECT_TRUE(starts(12.5f, true));
}

TEST_F(EngineLevelGate, VoiceSinksWithItsLatestSpeech) {
    starts(40, true);
    for (int frame = 0; frame < 30; ++frame)
        stays(40, true);
    EXPECT_EQ(gate_.sunk(), 0);
    stays(0, true);  // a pause says nothing about the voice
    EXPECT_EQ(gate_.sunk(), 0);
    for (int frame = 0; frame < 30; ++frame)
        stays(34, true);
    EXPECT_EQ(gate_.sunk(), 0);
    for (int frame = 0; frame < 30; ++frame)
        stays(29, true);
    EXPECT_NEAR(gate_.sunk(), 0.4, 0.15);
    for (int frame = 0; frame < 30; ++frame)
        stays(20, true);
    EXPECT_EQ(gate_.sunk(), 1);
}

TEST_F(EngineLevelGate, FrameCountsByWhatItHasLessOf) {
    stays(40, true);
    EXPECT_NEAR(gate_.excess(NOISE + 9, NOISE, true, true), 1, 0.1);  // 32 dB below 40, and 5 above
    gate_.reset();
    EXPECT_NEAR(gate_.excess(NOISE + 9, NOISE, true, true), 4, 0.1);
}

TEST_F(EngineLevelGate, ResetForgetsTheLoudest) {
    stays(50, true);
    gate_.reset();
    EXPECT_TRUE(starts(14.5f, true));
}

// White noise that comes in the way a cold suppressor lets it through: faded in, then constant.
TEST(EngineSpeechActivity, NoiseAtTheBeginningOfAStreamIsNoSpeech) {
    engine::SpeechActivity activity{engine::VadSettings()};
    std::mt19937 chance(1);
    std::normal_distribution<double> noise(0, 1000);
    for (int frame = 0; frame < 100; ++frame) {
        engine::Samples samples;
        for (int16_t& sample : samples)
            sample = static_cast<int16_t>(noise(chance) * (frame == 0 ? 0.03 : 1));
        EXPECT_FALSE(activity.examine(samples, false).voiced) << frame;
    }
}

}  // namespace
