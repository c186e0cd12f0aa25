// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "Priming.h"

namespace {

// Shows a stream, one character each: < TOF, > EOF, 1 START, anything else data. Returns the
// positions at which a primed start was complete.
std::string completedAt(const std::string& input) {
    engine::Priming priming;
    std::string positions;
    for (size_t position = 0; position < input.size(); ++position) {
        engine::AudioFrame frame;
        const char symbol = input[position];
        frame.type = symbol == '<'   ? engine::FRAME_TOF
                     : symbol == '>' ? engine::FRAME_EOF
                     : symbol == '1' ? engine::FRAME_START
                                     : engine::FRAME_DATA;
        if (priming.isComplete(frame))
            positions += std::to_string(position) + " ";
    }
    return positions;
}

TEST(EnginePriming, IsCompleteAtTheTenthFrameOfNoise) {
    EXPECT_EQ(completedAt("><.........."), "11 ");
    EXPECT_EQ(completedAt("><........."), "");
}

TEST(EnginePriming, HappensOnceInALifetime) {
    EXPECT_EQ(completedAt("><....................><.........."), "11 ");
}

TEST(EnginePriming, NeedsEofAndTofAsTheVeryFirstFrames) {
    EXPECT_EQ(completedAt("<.............."), "");
    EXPECT_EQ(completedAt(">..............."), "");
    EXPECT_EQ(completedAt("................"), "");
    EXPECT_EQ(completedAt(".><.............."), "");
    EXPECT_EQ(completedAt("<><.............."), "");
    EXPECT_EQ(completedAt(">><.............."), "");
}

TEST(EnginePriming, IsSpoiltByAnyOtherFrameInBetween) {
    EXPECT_EQ(completedAt("><...1............"), "");
    EXPECT_EQ(completedAt("><...<............"), "");
    EXPECT_EQ(completedAt("><...>............"), "");
}

TEST(EnginePriming, KeepsTheNoiseInOrderUntilForgotten) {
    engine::Priming priming;
    engine::AudioFrame frame;
    frame.type = engine::FRAME_EOF;
    priming.isComplete(frame);
    frame.type = engine::FRAME_TOF;
    priming.isComplete(frame);
    frame.type = engine::FRAME_DATA;
    for (int16_t index = 0; index < 10; ++index) {
        frame.samples[0] = index;
        EXPECT_EQ(priming.isComplete(frame), index == 9);
    }
    ASSERT_EQ(priming.noise().size(), 10u);
    EXPECT_EQ(priming.noise().front()[0], 0);
    EXPECT_EQ(priming.noise().back()[0], 9);
    priming.forget();
    EXPECT_TRUE(priming.noise().empty());
}

}  // namespace
