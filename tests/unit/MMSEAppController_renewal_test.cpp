// SPDX-License-Identifier: MIT
// The renewal: engines restarted, twelve priming frames ahead of the live audio.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "AppConnector.h"
#include "MMSEAppController.h"
#include "audio_frames.h"
#include "error_text.h"
#include "faults.h"
#include "mmse_controller_fixture.h"
#include "wait_until.h"

namespace {

using faults::Call;

class NoiseModelRenewal : public MMSEAppControllerTest {
  protected:
    NoiseModelRenewal() {
        controller_.launch();
        EXPECT_TRUE(engines_.mmse.hasLogged("start") && engines_.vad.hasLogged("start"));
    }

    // Ten noise frames numbered 1 to 10 are gathered last, so each priming frame has its number.
    void renew() {
        for (int i = 0; i < 500; ++i)
            controller_.addVADData(audioFrame(FRAME_DATA, 1 + i % 10));
        EXPECT_EQ(renewals(), 1);
    }

    static constexpr const char* FIRST_FOUR = "10:0 9:0 0:1 0:2";
};

TEST_F(NoiseModelRenewal, RestartsBothEngines) {
    const auto mmse = engines_.mmse.pids();
    const auto vad = engines_.vad.pids();
    renew();
    EXPECT_TRUE(engines_.mmse.hasLogged("start", 2) && engines_.vad.hasLogged("start", 2));
    EXPECT_EQ(kill(mmse.at(0), 0), -1);
    EXPECT_EQ(kill(vad.at(0), 0), -1);
}

TEST_F(NoiseModelRenewal, TheNextCallForwardsFourFrames) {
    renew();
    feed(101, 101);
    passUntilEngineHas("frame 0 2");
    EXPECT_EQ(engines_.mmse.frames(), FIRST_FOUR);
}

TEST_F(NoiseModelRenewal, NothingIsForwardedBeforeTheNextCall) {
    renew();
    faults::clear();
    for (int i = 0; i < 20; ++i)
        controller_.process();
    EXPECT_EQ(faults::callsOf(Call::WRITE), 0);
}

TEST_F(NoiseModelRenewal, EachLaterCallForwardsOneFrame) {
    renew();
    feed(101, 102);
    passUntilEngineHas("frame 0 3");
    EXPECT_EQ(engines_.mmse.frames(), std::string(FIRST_FOUR) + " 0:3");
}

TEST_F(NoiseModelRenewal, LiveAudioResumesNineCallsLate) {
    renew();
    feed(101, 110);
    passUntilEngineHas("frame 0 101");
    EXPECT_EQ(engines_.mmse.frames(),
              std::string(FIRST_FOUR) + " 0:3 0:4 0:5 0:6 0:7 0:8 0:9 0:10 0:101");
}

TEST_F(NoiseModelRenewal, DelayedLiveFramesNeverReachAnEngine) {
    feed(51, 59);
    renew();
    feed(101, 110);
    passUntilEngineHas("frame 0 101");
    EXPECT_EQ(engines_.mmse.frames(),
              std::string(FIRST_FOUR) + " 0:3 0:4 0:5 0:6 0:7 0:8 0:9 0:10 0:101");
}

TEST_F(NoiseModelRenewal, ForwardedFramesThatWaitAreDropped) {
    feed(41, 50);
    renew();
    feed(101, 101);
    passUntilEngineHas("frame 0 2");
    EXPECT_EQ(engines_.mmse.frames(), FIRST_FOUR);
}

TEST_F(NoiseModelRenewal, LeavesThreeFramesWaitingHoweverOftenItComes) {
    const auto sent = [this] {
        const auto events = engines_.mmse.events();
        return std::count_if(events.begin(), events.end(),
                             [](const std::string& event) { return event.starts_with("frame"); });
    };
    for (int i = 0; i < 3; ++i) {
        controller_.renewNoiseModel();
        const long before = sent();
        for (int number = 1; number <= 20; ++number) {
            feed(number, number);
            controller_.process();
        }
        EXPECT_TRUE(waitUntil([&] { return sent() == before + 20; }));
        for (int pass = 0; pass < 5; ++pass)
            controller_.process();
        EXPECT_TRUE(waitUntil([&] { return sent() >= before + 23; }));
        EXPECT_EQ(sent(), before + 23);
    }
}

TEST_F(NoiseModelRenewal, TheNoiseModelSurvives) {
    renew();
    EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(4)), 5);
}

TEST_F(NoiseModelRenewal, AConnectorErrorOfTheRestartPassesThrough) {
    faults::failNext(Call::KILL, EPERM);
    EXPECT_EQ(errorOf<AppConnectorError>([this] { controller_.renewNoiseModel(); }),
              withSystemText("[AppConnectorError] Kill child process failed. error : ", EPERM));
}

TEST_F(NoiseModelRenewal, AFailedRelaunchPassesThrough) {
    faults::failNext(Call::PIPE, EMFILE);
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.renewNoiseModel(); }),
              withSystemText("[AppcontrollerError] VAD connector launch failed. "
                             "[AppConnectorError] Parent to child pipe create failed. error : ",
                             EMFILE));
}

}  // namespace
