// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <numbers>
#include <random>
#include <vector>

#include "FastStart.h"
#include "MmseStage.h"

namespace {

constexpr int SECOND = 100;  // frames

// Sounds that go on from frame to frame.
class EngineFastStart : public testing::Test {
  protected:
    using Sound = std::function<double(double seconds)>;
    using Noise = engine::FastStart::Noise;

    engine::Samples next(const Sound& sound) {
        engine::Samples samples;
        for (int16_t& sample : samples)
            sample = static_cast<int16_t>(std::lround(sound(clock_++ / 16000.0)));
        return samples;
    }

    Sound white(double deviation) {
        return [this, deviation](double) { return deviation * normal_(chance_); };
    }

    static double hum(double seconds) {
        double sum = 0;
        for (int harmonic = 1; harmonic <= 20; ++harmonic)
            sum += std::sin(2 * std::numbers::pi * 50 * harmonic * seconds + harmonic * harmonic) /
                   harmonic;
        return 500 * sum;
    }

    // A buzz at 120 Hz with harmonics up to 3 kHz, four syllables a second.
    static double voice(double seconds) {
        double buzz = 0;
        for (int harmonic = 1; harmonic <= 25; ++harmonic)
            buzz += std::sin(2 * std::numbers::pi * 120 * harmonic * seconds + harmonic);
        return 100 * (0.6 + 0.4 * std::sin(2 * std::numbers::pi * 4 * seconds)) * buzz;
    }

    static double silence(double) { return 0; }

    // After how many of the next frames there was new noise: 1 is the first of them.
    std::vector<int> found(int frames, const Sound& sound) {
        std::vector<int> result;
        for (int frame = 1; frame <= frames; ++frame)
            if (start_.newNoise(next(sound)) != Noise::NONE)
                result.push_back(frame);
        return result;
    }

    engine::FastStart start_;
    std::mt19937 chance_{1};
    std::normal_distribution<double> normal_{0, 1};
    int clock_ = 0;  // samples
};

TEST_F(EngineFastStart, WhiteNoiseIsRecognisedOnceAfterTwoHundredMilliseconds) {
    const auto frames = found(3 * SECOND, white(300));
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_GE(frames[0], 20);
    EXPECT_LE(frames[0], 25);
}

TEST_F(EngineFastStart, HumIsRecognised) {
    EXPECT_EQ(found(SECOND, hum), std::vector{20});
}

TEST_F(EngineFastStart, VoiceIsNoNoise) {
    EXPECT_TRUE(found(3 * SECOND, voice).empty());
}

TEST_F(EngineFastStart, NoiseBehindVoiceIsRecognised) {
    found(SECOND, voice);
    EXPECT_EQ(found(SECOND, white(30)).size(), 1u);
}

TEST_F(EngineFastStart, TellsNoiseAloneFromNoiseBehindSpeech) {
    const auto first = [&](const Sound& sound) {
        for (int frame = 0; frame < SECOND; ++frame)
            if (const auto noise = start_.newNoise(next(sound)); noise != Noise::NONE)
                return noise;
        return Noise::NONE;
    };
    EXPECT_EQ(first(white(300)), Noise::ALONE);
    EXPECT_EQ(first(voice), Noise::NONE);
    EXPECT_EQ(first(white(30)), Noise::ALONE);  // softer than what was noise before
    start_.reset();
    EXPECT_EQ(first(voice), Noise::NONE);
    EXPECT_EQ(first(white(30)), Noise::BEHIND_SPEECH);
    start_.reset();
    EXPECT_EQ(first(silence), Noise::NONE);
    EXPECT_EQ(first(white(30)), Noise::ALONE);
}

TEST_F(EngineFastStart, ClearlySofterNoiseIsNew) {
    found(SECOND / 2, white(1000));
    const auto frames = found(SECOND, white(100));
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_GE(frames[0], 18);  // nearly all that is heard again must be the softer noise
    EXPECT_LE(frames[0], 25);
}

TEST_F(EngineFastStart, NeitherLouderNoiseIsNewNorSlightlySofterOne) {
    found(SECOND / 2, white(300));
    EXPECT_TRUE(found(SECOND / 2, white(210)).empty());  // 3 dB softer
    EXPECT_TRUE(found(SECOND, white(3000)).empty());
}

TEST_F(EngineFastStart, SilenceIsNoNoiseAndHidesNone) {
    EXPECT_TRUE(found(SECOND / 2, silence).empty());
    EXPECT_EQ(found(SECOND, white(300)).size(), 1u);
}

TEST_F(EngineFastStart, SilenceAfterNoiseIsNewAndSoIsNoiseAfterIt) {
    found(SECOND / 2, white(300));
    EXPECT_EQ(found(SECOND / 2, silence).size(), 1u);
    EXPECT_EQ(found(SECOND / 2, white(300)).size(), 1u);
}

TEST_F(EngineFastStart, NothingIsLookedForAfterThreeSeconds) {
    found(3 * SECOND, voice);
    EXPECT_TRUE(found(SECOND, white(30)).empty());
    start_.reset();
    EXPECT_EQ(found(SECOND, white(30)).size(), 1u);
}

TEST_F(EngineFastStart, StoppedItWaitsForTheNextStream) {
    start_.stop();
    EXPECT_TRUE(found(SECOND, white(30)).empty());
    start_.reset();
    EXPECT_EQ(found(SECOND, white(30)).size(), 1u);
}

TEST_F(EngineFastStart, TheNoiseIsTheLatestFramesInOrder) {
    std::vector<engine::Samples> frames;
    for (int frame = 0; frame < 33; ++frame) {
        frames.push_back(next(white(300)));
        start_.newNoise(frames.back());
    }
    EXPECT_EQ(start_.noise(), std::vector(frames.end() - 20, frames.end()));
}

// The stage with it and without it, in decibels by which noise is lowered.
class EngineColdStart : public EngineFastStart {
  protected:
    double attenuation(int cold_repeats, int from, int to) {
        engine::MmseSettings settings;
        settings.cold_repeats = cold_repeats;
        double before = 0, after = 0;
        bool inside = false;
        engine::MmseStage stage(settings, [&](std::span<const std::byte> bytes) {
            engine::AudioFrame frame;
            std::memcpy(&frame, bytes.data(), sizeof(frame));
            if (inside)
                after += energy(frame.samples);
        });
        engine::AudioFrame frame;
        frame.type = engine::FRAME_TOF;
        stage.accept(frame);
        frame.type = engine::FRAME_DATA;
        for (int number = 0; number < to; ++number) {
            inside = number >= from;
            frame.samples = next(white(300));
            before += inside ? energy(frame.samples) : 0;
            stage.accept(frame);
        }
        return 10 * std::log10(before / after);
    }

    static double energy(const engine::Samples& samples) {
        double sum = 0;
        for (const double sample : samples)
            sum += sample * sample;
        return sum;
    }
};

TEST_F(EngineColdStart, NoiseIsLoweredFromTwoHundredMillisecondsOn) {
    EXPECT_GT(attenuation(4, 28, 32), 12);
}

TEST_F(EngineColdStart, WithoutItNoiseIsLoweredSecondsLater) {
    EXPECT_LT(attenuation(0, 28, 32), 3);
}

}  // namespace
