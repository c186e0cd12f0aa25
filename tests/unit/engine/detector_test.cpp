// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <random>

#include "VoiceDetector.h"

namespace {

constexpr int SECOND = 100;  // frames

double gainOf(double decibel) {
    return std::pow(10, decibel / 20);
}

// Sounds that go on from frame to frame; levels in dB re a quiet room.
class EngineVoiceDetector : public testing::Test {
  protected:
    using Sound = std::function<double(double seconds)>;

    double white(double level) { return 30 * gainOf(level) * normal_(chance_); }

    // A buzz at 120 Hz with harmonics up to 3 kHz, four syllables a second.
    static double voice(double seconds, double level) {
        double buzz = 0;
        for (int harmonic = 1; harmonic <= 25; ++harmonic)
            buzz += std::sin(2 * std::numbers::pi * 120 * harmonic * seconds + harmonic);
        const double syllable = 0.6 + 0.4 * std::sin(2 * std::numbers::pi * 4 * seconds);
        return 10 * gainOf(level) * syllable * buzz;
    }

    static double hum(double seconds, double level) {
        double sum = 0;
        for (int harmonic = 1; harmonic <= 20; ++harmonic)
            sum += std::sin(2 * std::numbers::pi * 50 * harmonic * seconds + harmonic * harmonic) /
                   harmonic;
        return 30 * gainOf(level) * sum;
    }

    // How many of the next frames are taken for voice.
    int voiced(int frames, const Sound& sound) {
        int count = 0;
        for (int frame = 0; frame < frames; ++frame) {
            engine::Samples samples;
            for (int16_t& sample : samples)
                sample = static_cast<int16_t>(std::lround(sound(clock_++ / 16000.0)));
            count += detector_.isVoiced(samples) ? 1 : 0;
        }
        return count;
    }

    int voicedNoise(int frames, double level) {
        return voiced(frames, [&](double) { return white(level); });
    }
    int voicedSpeech(int frames, double level) {
        return voiced(frames, [&](double t) { return white(0) + voice(t, level); });
    }

    engine::VoiceDetector detector_;
    std::mt19937 chance_{1};
    std::normal_distribution<double> normal_{0, 1};
    int clock_ = 0;  // samples
};

TEST_F(EngineVoiceDetector, SteadyNoiseIsNoVoice) {
    voicedNoise(SECOND, 0);
    EXPECT_LT(voicedNoise(10 * SECOND, 0), SECOND / 4);
}

TEST_F(EngineVoiceDetector, HumIsNoVoice) {
    EXPECT_EQ(voiced(10 * SECOND, [](double t) { return hum(t, 20); }), 0);
}

TEST_F(EngineVoiceDetector, SpeechInNoiseIsVoice) {
    voicedNoise(2 * SECOND, 0);
    EXPECT_GT(voicedSpeech(2 * SECOND, 10), 2 * SECOND - 10);
}

TEST_F(EngineVoiceDetector, VoiceIsOverSoonAfterIt) {
    voicedNoise(2 * SECOND, 0);
    voicedSpeech(2 * SECOND, 10);
    EXPECT_LT(voicedNoise(2 * SECOND, 0), 20);
}

TEST_F(EngineVoiceDetector, NewNoiseThatStaysTheSameIsVoiceForHalfASecondAtMost) {
    voicedNoise(2 * SECOND, 0);
    EXPECT_LE(voicedNoise(5 * SECOND, 20), 50);
}

TEST_F(EngineVoiceDetector, NewHumIsVoiceForHalfASecondAtMost) {
    voicedNoise(2 * SECOND, 0);
    const auto both = [&](double t) { return white(0) + hum(t, 20); };
    EXPECT_LE(voiced(5 * SECOND, both), 50);
}

TEST_F(EngineVoiceDetector, SpeechRightAtTheBeginningIsVoice) {
    voicedSpeech(SECOND / 2, 10);  // its first dip shows the noise
    EXPECT_GT(voicedSpeech(SECOND, 10), SECOND * 3 / 4);
}

TEST_F(EngineVoiceDetector, ResetForgetsTheNoise) {
    voicedNoise(2 * SECOND, 0);
    EXPECT_EQ(voicedNoise(3, 20), 3);
    detector_.reset();
    EXPECT_LT(voicedNoise(SECOND, 20), SECOND / 4);
}

}  // namespace
