// SPDX-License-Identifier: MIT
#include "Wav.h"

#include <gtest/gtest.h>

#include "TimeText.h"

namespace node {
namespace {

using namespace std::string_literals;

TEST(Wav, HeaderOfThreeSamples) {
    Utterance utterance;
    utterance.audio = "\x01\x00\xff\xff\x00\x80"s;
    EXPECT_EQ(wavImage(utterance),
              "RIFF\x2a\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x80\x3e\0\0\0\x7d\0\0\x02\0\x10\0"
              "data\x06\0\0\0\x01\x00\xff\xff\x00\x80"s);
}

TEST(Wav, NoAudioIsAHeader) {
    EXPECT_EQ(wavImage({}).size(), WAV_HEADER_SIZE);
}

TEST(TimeText, HasMillisecondsAndIsUtc) {
    const SystemTime time{milliseconds{1741096997045}};
    EXPECT_EQ(isoTime(time), "2025-03-04T14:03:17.045Z");
    EXPECT_EQ(fileTime(time), "20250304T140317.045Z");
}

TEST(TimeText, NeverShowsASecondThatHasNotCome) {
    EXPECT_EQ(isoTime(SystemTime{std::chrono::microseconds{1741096997999999}}),
              "2025-03-04T14:03:17.999Z");
}

TEST(TimeText, ClockThatWasNeverSetIsFine) {
    EXPECT_EQ(isoTime(SystemTime{milliseconds{-1}}), "1969-12-31T23:59:59.999Z");
}

TEST(TimeText, SecondsHaveThreeDigits) {
    EXPECT_EQ(secondsText(1.23), "1.230");
    EXPECT_EQ(secondsText(0), "0.000");
}

}  // namespace
}  // namespace node
