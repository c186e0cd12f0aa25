// SPDX-License-Identifier: MIT
#include "Watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Optional;

constexpr uint64_t MMSE_FRAME = 324;  // bytes that an engine writes for a frame
constexpr uint64_t VAD_FRAME = 104;

// A bridge with its engines, as the node sees it once a second.
class WatchdogTest : public testing::Test {
  protected:
    WatchdogTest() { begin({}); }
    void begin(const node::WatchdogOptions& options) {
        watchdog_ = std::make_unique<node::Watchdog>(options, now_);
        sight_ = {};
        renew();
    }
    // Both engines are new ones.
    void renew() {
        sight_.engines.clear();
        for (int i = 0; i < 2; ++i) {
            node::ProcessVitals engine;
            engine.name = "engine";
            engine.pid = ++last_pid_;
            engine.io_known = true;
            sight_.engines.push_back(engine);
        }
    }
    // A second in which the node got frames and the engines answered some.
    void second(uint64_t frames, uint64_t mmse, uint64_t vad) {
        now_ += std::chrono::seconds(1);
        sight_.frames += frames;
        sight_.engines[0].written += mmse * MMSE_FRAME;
        sight_.engines[1].written += vad * VAD_FRAME;
        if (!reason_)
            reason_ = watchdog_->look(sight_, now_);
    }
    // Seconds until it barks, at most so many.
    int secondsOf(int most, uint64_t frames, uint64_t mmse, uint64_t vad) {
        for (int i = 1; i <= most; ++i) {
            second(frames, mmse, vad);
            if (reason_)
                return i;
        }
        return 0;
    }
    bool quietFor(int time, uint64_t frames, uint64_t mmse, uint64_t vad) {
        return secondsOf(time, frames, mmse, vad) == 0;
    }
    void connect() {
        sight_.connected = true;
        second(0, 0, 0);
    }

    node::Clock::time_point now_{std::chrono::hours(7)};
    node::Watchdog::Sight sight_;
    pid_t last_pid_ = 1000;
    std::unique_ptr<node::Watchdog> watchdog_;
    std::optional<std::string> reason_;
};

TEST_F(WatchdogTest, AudioAtItsPaceIsGoodForHours) {
    connect();
    EXPECT_TRUE(quietFor(20000, 100, 100, 100));
}

TEST_F(WatchdogTest, AQuietVoiceServerIsGood) {
    connect();
    EXPECT_TRUE(quietFor(5000, 10, 10, 10));
}

TEST_F(WatchdogTest, FramesHeldBackAreGoodWhileTheEnginesAnswer) {
    connect();
    EXPECT_TRUE(quietFor(5000, 0, 10, 10));    // EPD is off, the voice server quiet
    EXPECT_TRUE(quietFor(5000, 0, 100, 100));  // a sound plays
}

TEST_F(WatchdogTest, TenSecondsWithoutAnythingAreTooLong) {
    connect();
    quietFor(5, 100, 100, 100);
    EXPECT_EQ(secondsOf(60, 0, 0, 0), 10);
    EXPECT_THAT(reason_, Optional(HasSubstr("no frame for 10 s")));
}

TEST_F(WatchdogTest, AnEngineThatNeverAnswersIsFound) {
    connect();
    EXPECT_EQ(secondsOf(60, 0, 0, 0), 10);
}

TEST_F(WatchdogTest, AHangingVadEngineIsFoundWhileEpdIsOff) {
    connect();
    quietFor(30, 0, 100, 100);
    EXPECT_EQ(secondsOf(60, 0, 100, 0), 10);
}

TEST_F(WatchdogTest, AHangingMmseEngineIsFoundWhileEpdIsOff) {
    connect();
    quietFor(30, 0, 100, 100);
    EXPECT_EQ(secondsOf(60, 0, 0, 100), 10);
}

TEST_F(WatchdogTest, APauseShorterThanTheLimitBeginsTheTimeAnew) {
    connect();
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(quietFor(9, 0, 0, 0));
        ASSERT_TRUE(quietFor(1, 1, 1, 1));
    }
}

TEST_F(WatchdogTest, WithoutSightOfTheEnginesALackOfFramesProvesNothing) {
    for (node::ProcessVitals& engine : sight_.engines)
        engine.io_known = false;
    connect();
    EXPECT_TRUE(quietFor(60, 0, 0, 0));
    EXPECT_TRUE(watchdog_->blind());
}

TEST_F(WatchdogTest, EnginesThatWereNeverSeenAreNoLackOfLife) {
    sight_.engines.clear();
    sight_.connected = true;
    for (int i = 0; i < 60; ++i) {
        now_ += std::chrono::seconds(1);
        EXPECT_EQ(watchdog_->look(sight_, now_), std::nullopt);
    }
}

TEST_F(WatchdogTest, SeesOnceAnEngineWasLookedAt) {
    connect();
    second(0, 1, 1);
    EXPECT_FALSE(watchdog_->blind());
}

TEST_F(WatchdogTest, ATimeInWhichNobodyLookedSaysNothing) {
    connect();
    second(100, 100, 100);
    now_ += std::chrono::minutes(1);  // the node was stopped, or had no processor
    watchdog_->excuse(now_);
    EXPECT_TRUE(quietFor(9, 0, 0, 0));
    EXPECT_EQ(secondsOf(9, 0, 0, 0), 1);
}

TEST_F(WatchdogTest, EnginesThatAnswerInTurnAreAlive) {
    connect();
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(quietFor(4, 0, 1, 0));
        ASSERT_TRUE(quietFor(4, 0, 0, 1));
    }
}

TEST_F(WatchdogTest, RenewedEnginesAreAlive) {
    connect();
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(quietFor(5, 100, 100, 100));
        renew();
    }
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(quietFor(5, 0, 100, 100));
        renew();
    }
}

TEST_F(WatchdogTest, EnginesThatHangBehindARenewalAreFound) {
    connect();
    quietFor(5, 100, 100, 100);
    renew();
    EXPECT_EQ(secondsOf(60, 0, 0, 0), 10);
}

TEST_F(WatchdogTest, ABridgeWhoseEnginesAreGoneIsFound) {
    connect();
    quietFor(5, 100, 100, 100);
    sight_.engines = {{}, {}};
    sight_.engines.clear();
    for (int i = 0; i < 60 && !reason_; ++i) {
        now_ += std::chrono::seconds(1);
        reason_ = watchdog_->look(sight_, now_);
    }
    EXPECT_THAT(reason_, Optional(HasSubstr("no frame")));
}

TEST_F(WatchdogTest, SilenceIsNotCountedWhileThereAreNoPeers) {
    EXPECT_TRUE(quietFor(600, 0, 0, 0));
    connect();
    EXPECT_EQ(secondsOf(60, 0, 0, 0), 10);
}

TEST_F(WatchdogTest, SilenceSwitchedOffIsGoodForEver) {
    node::WatchdogOptions options;
    options.silence = milliseconds(0);
    begin(options);
    connect();
    EXPECT_TRUE(quietFor(5000, 0, 0, 0));
}

// A voice server has closed one way only: its end of data is silence, as fast as it can be read.
TEST_F(WatchdogTest, FiveSecondsOfFarTooManyFramesAreASpin) {
    connect();
    quietFor(5, 100, 100, 100);
    EXPECT_EQ(secondsOf(60, 5000, 5000, 5000), 5);
    EXPECT_THAT(reason_, Optional(AllOf(HasSubstr("more frames"), HasSubstr("5 s"))));
}

TEST_F(WatchdogTest, ASpinIsFoundWhileEpdIsOff) {
    connect();
    quietFor(5, 0, 100, 100);
    EXPECT_EQ(secondsOf(60, 0, 5000, 5000), 5);
    EXPECT_THAT(reason_, Optional(HasSubstr("more frames")));
}

TEST_F(WatchdogTest, ASpinIsFoundThoughEnginesAreRenewed) {
    connect();
    for (int i = 0; i < 20 && !reason_; ++i) {
        second(3000, 3000, 3000);
        renew();
    }
    EXPECT_THAT(reason_, Optional(HasSubstr("more frames")));
}

// The new engines have answered far less than the old ones had.
TEST_F(WatchdogTest, ARenewalIsNoSpinHoweverShortThatMayBe) {
    node::WatchdogOptions options;
    options.spinning = milliseconds(1000);
    begin(options);
    connect();
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(quietFor(5, 100, 100, 100));
        renew();
    }
}

TEST_F(WatchdogTest, ABurstShorterThanTheLimitIsNoSpin) {
    connect();
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(quietFor(4, 5000, 5000, 5000));
        ASSERT_TRUE(quietFor(1, 1000, 1000, 1000));
    }
}

TEST_F(WatchdogTest, TenTimesThePaceOfAudioIsNoSpin) {
    connect();
    EXPECT_TRUE(quietFor(1000, 1000, 1000, 1000));
}

TEST_F(WatchdogTest, ALateLookIsNoSpin) {
    connect();
    for (int i = 0; i < 10; ++i) {
        now_ += std::chrono::seconds(14);  // the machine was busy; a second more with each look
        ASSERT_TRUE(quietFor(1, 1500, 1500, 1500));
    }
}

// Peers that come after minutes bring a burst of what they had kept.
TEST_F(WatchdogTest, ABurstRightAfterAWaitForPeersIsNoSpin) {
    EXPECT_TRUE(quietFor(600, 0, 0, 0));
    sight_.connected = true;
    EXPECT_TRUE(quietFor(2, 3000, 3000, 3000));
    EXPECT_TRUE(quietFor(60, 100, 100, 100));
}

TEST_F(WatchdogTest, AnyRateIsGoodWhenThatIsSwitchedOff) {
    node::WatchdogOptions options;
    options.most_frames = 0;
    begin(options);
    connect();
    EXPECT_TRUE(quietFor(1000, 50000, 50000, 50000));
}

TEST_F(WatchdogTest, HalfAnHourWithoutPeersIsTooLong) {
    EXPECT_EQ(secondsOf(3600, 0, 0, 0), 1800);
    EXPECT_THAT(reason_, Optional(HasSubstr("peers were not there for 1800 s")));
}

TEST_F(WatchdogTest, PeersThatWereThereOnceAreNotWaitedFor) {
    connect();
    EXPECT_TRUE(quietFor(4000, 100, 100, 100));
}

TEST_F(WatchdogTest, FramesTellThatPeersAreThereToo) {  // with -l err and no word of it
    second(100, 100, 100);
    EXPECT_TRUE(quietFor(4000, 100, 100, 100));
    EXPECT_EQ(secondsOf(60, 0, 0, 0), 10);
}

TEST_F(WatchdogTest, PeersAreWaitedForForEverWhenThatIsSwitchedOff) {
    node::WatchdogOptions options;
    options.waiting = milliseconds(0);
    begin(options);
    EXPECT_TRUE(quietFor(20000, 0, 0, 0));
}

TEST_F(WatchdogTest, LimitsAreThoseOfItsOptions) {
    node::WatchdogOptions options{milliseconds(3000), 200, milliseconds(2000), milliseconds(60000)};
    begin(options);
    EXPECT_EQ(secondsOf(100, 0, 0, 0), 60);
    reason_.reset();
    begin(options);
    connect();
    EXPECT_EQ(secondsOf(100, 0, 0, 0), 3);
    reason_.reset();
    begin(options);
    connect();
    EXPECT_EQ(secondsOf(100, 201, 201, 201), 2);
}

}  // namespace
