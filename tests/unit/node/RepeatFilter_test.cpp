// SPDX-License-Identifier: MIT
#include "RepeatFilter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using std::chrono::minutes;
using std::chrono::seconds;
using testing::Eq;
using testing::Optional;

constexpr char REFUSED[] = "Socket connect error. error : Connection refused";

class RepeatFilterTest : public testing::Test {
  protected:
    std::optional<std::string> say(const std::string& text) { return filter_.pass(text, now_); }
    // The text every five seconds, as a bridge that waits for its peers; when what was written.
    std::vector<std::pair<int64_t, std::string>> repeat(std::chrono::hours time) {
        std::vector<std::pair<int64_t, std::string>> written;
        const auto began = now_;
        for (; now_ - began < time; now_ += seconds(5)) {
            if (const auto line = say(REFUSED))
                written.emplace_back(std::chrono::floor<minutes>(now_ - began).count(), *line);
        }
        return written;
    }

    node::Clock::time_point now_{std::chrono::hours(9)};
    node::RepeatFilter filter_;
};

TEST_F(RepeatFilterTest, LetsTheFirstOfEachTextThrough) {
    EXPECT_THAT(say("one"), Optional(Eq("one")));
    EXPECT_THAT(say("other"), Optional(Eq("other")));
}

TEST_F(RepeatFilterTest, HoldsBackWhatRepeatsWithinAMinute) {
    say("text");
    for (int i = 0; i < 59; ++i) {
        now_ += seconds(1);
        EXPECT_EQ(say("text"), std::nullopt);
    }
    now_ += seconds(1);
    EXPECT_THAT(say("text"), Optional(Eq("text (60 times in 1 min)")));
}

TEST_F(RepeatFilterTest, ATextThatRepeatsForHoursIsWrittenAtOneThreeSevenMinutesAndOn) {
    const auto written = repeat(std::chrono::hours(6));
    std::vector<int64_t> times;
    times.reserve(written.size());
    for (const auto& [minute, line] : written)
        times.push_back(minute);
    EXPECT_THAT(times, testing::ElementsAre(0, 1, 3, 7, 15, 31, 63, 123, 183, 243, 303));
    EXPECT_EQ(written[0].second, REFUSED);
    EXPECT_EQ(written[2].second, std::string(REFUSED) + " (24 times in 2 min)");
    EXPECT_EQ(written.back().second, std::string(REFUSED) + " (720 times in 60 min)");
}

TEST_F(RepeatFilterTest, OneTextsRepetitionsAreNotAnothers) {
    say("one");
    now_ += seconds(30);
    say("other");
    now_ += seconds(30);
    EXPECT_THAT(say("one"), Optional(Eq("one")));
    EXPECT_EQ(say("other"), std::nullopt);
}

TEST_F(RepeatFilterTest, OneThatCameOnceInBetweenIsWrittenAsItStands) {
    say("rare");
    for (int i = 0; i < 5; ++i) {
        now_ += minutes(100);
        EXPECT_THAT(say("rare"), Optional(Eq("rare")));
    }
}

TEST_F(RepeatFilterTest, ATextNotSeenForTwoHoursIsNewAgain) {
    repeat(std::chrono::hours(3));
    now_ += minutes(121);
    EXPECT_THAT(say(REFUSED), Optional(Eq(REFUSED)));
    now_ += minutes(1);
    EXPECT_THAT(say(REFUSED), Optional(Eq(REFUSED)));  // and its pauses begin anew
}

TEST_F(RepeatFilterTest, ATextHeldBackAnHourAgoIsNotForgottenBecauseItWasWrittenLongBefore) {
    say("text");
    for (const int pause : {1, 2, 4, 8, 16, 32}) {
        now_ += minutes(pause);
        EXPECT_THAT(say("text"), Optional(Eq("text")));
    }
    now_ += minutes(59);
    EXPECT_EQ(say("text"), std::nullopt);
    now_ += minutes(119);
    EXPECT_THAT(say("text"), Optional(Eq("text (2 times in 178 min)")));
}

TEST_F(RepeatFilterTest, RemembersSixtyFourTextsAndForgetsTheOneSeenLongestAgo) {
    for (int i = 0; i < 64; ++i) {
        say("text " + std::to_string(i));
        now_ += std::chrono::milliseconds(1);
    }
    EXPECT_EQ(say("text 0"), std::nullopt);  // now seen last
    now_ += std::chrono::milliseconds(1);
    EXPECT_NE(say("one more"), std::nullopt);
    EXPECT_EQ(say("text 0"), std::nullopt);
    EXPECT_EQ(say("text 2"), std::nullopt);
    EXPECT_THAT(say("text 1"), Optional(Eq("text 1")));
}

}  // namespace
