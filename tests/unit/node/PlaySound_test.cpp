// SPDX-License-Identifier: MIT
#include "PlaySound.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

class PlaySoundTest : public testing::Test {
  protected:
    node::Clock::time_point after(int time) const { return began_ + seconds(time); }

    node::Clock::time_point began_{std::chrono::hours(3)};
    node::PlaySound state_{seconds(60)};
};

TEST_F(PlaySoundTest, IsOffAtFirst) {
    EXPECT_FALSE(state_.on());
    EXPECT_THAT(state_.expire(after(1000)), IsEmpty());
}

TEST_F(PlaySoundTest, IsOnBetweenOnAndOff) {
    state_.set(1, true, began_);
    EXPECT_TRUE(state_.on());
    state_.set(1, false, after(5));
    EXPECT_FALSE(state_.on());
}

TEST_F(PlaySoundTest, IsOnWhileAnyHolderHasNotSaidOff) {
    state_.set(1, true, began_);
    state_.set(2, true, began_);
    state_.set(1, false, after(1));
    EXPECT_TRUE(state_.on());
    state_.set(2, false, after(2));
    EXPECT_FALSE(state_.on());
}

TEST_F(PlaySoundTest, AnOffOfSomebodyElseChangesNothing) {
    state_.set(1, true, began_);
    state_.set(2, false, after(1));
    EXPECT_TRUE(state_.on());
}

TEST_F(PlaySoundTest, SaidTwiceIsTakenBackOnce) {
    state_.set(1, true, began_);
    state_.set(1, true, after(1));
    state_.set(1, false, after(2));
    EXPECT_FALSE(state_.on());
}

TEST_F(PlaySoundTest, AHolderThatVanishesIsSwitchedOffAndTold) {
    state_.set(1, true, began_);
    EXPECT_TRUE(state_.gone(1));
    EXPECT_FALSE(state_.on());
    EXPECT_FALSE(state_.gone(1));
}

TEST_F(PlaySoundTest, OneThatVanishesWithoutAnOnIsNothingToTell) {
    state_.set(2, true, began_);
    EXPECT_FALSE(state_.gone(1));
    EXPECT_TRUE(state_.on());
    state_.set(2, false, began_);
    EXPECT_FALSE(state_.gone(2));
}

TEST_F(PlaySoundTest, AnOnAsOldAsTheLimitIsSwitchedOffAndToldOnce) {
    state_.set(1, true, began_);
    state_.set(2, true, after(30));
    EXPECT_THAT(state_.expire(after(59)), IsEmpty());
    EXPECT_THAT(state_.expire(after(60)), ElementsAre(1U));
    EXPECT_TRUE(state_.on());
    EXPECT_THAT(state_.expire(after(61)), IsEmpty());
    EXPECT_THAT(state_.expire(after(90)), ElementsAre(2U));
    EXPECT_FALSE(state_.on());
}

TEST_F(PlaySoundTest, SayingItAgainBeginsTheTimeAnew) {
    state_.set(1, true, began_);
    state_.set(1, true, after(50));
    EXPECT_THAT(state_.expire(after(109)), IsEmpty());
    EXPECT_THAT(state_.expire(after(110)), ElementsAre(1U));
}

TEST_F(PlaySoundTest, WithoutALimitItStaysOn) {
    node::PlaySound unlimited{seconds(0)};
    unlimited.set(1, true, began_);
    EXPECT_THAT(unlimited.expire(after(1000000)), IsEmpty());
    EXPECT_TRUE(unlimited.on());
}

}  // namespace
