// SPDX-License-Identifier: MIT
#include "Backoff.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using std::chrono::milliseconds;

// The pauses behind runs without a frame, in seconds.
std::vector<int64_t> pausesOf(node::Backoff& backoff, int runs) {
    std::vector<int64_t> pauses(static_cast<size_t>(runs));
    for (int64_t& pause : pauses)
        pause = backoff.after(milliseconds(0)).count() / 1000;
    return pauses;
}

TEST(Backoff, DoublesFromOneToThirtySeconds) {
    node::Backoff backoff;
    EXPECT_THAT(pausesOf(backoff, 9), testing::ElementsAre(1, 2, 4, 8, 16, 30, 30, 30, 30));
}

TEST(Backoff, IsBackAtOneSecondBehindAMinuteOfFrames) {
    node::Backoff backoff;
    pausesOf(backoff, 6);
    EXPECT_EQ(backoff.after(milliseconds(60000)), milliseconds(1000));
    EXPECT_THAT(pausesOf(backoff, 3), testing::ElementsAre(2, 4, 8));
}

TEST(Backoff, GoesOnBehindARunThatHadFramesForLess) {
    node::Backoff backoff;
    pausesOf(backoff, 3);
    EXPECT_EQ(backoff.after(milliseconds(59999)), milliseconds(8000));
}

TEST(Backoff, IsOneSecondAfterEachOfManyGoodRuns) {
    node::Backoff backoff;
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(backoff.after(std::chrono::hours(1)), milliseconds(1000));
}

}  // namespace
