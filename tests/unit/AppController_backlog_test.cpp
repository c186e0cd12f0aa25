// SPDX-License-Identifier: MIT
// Engines that read and do not answer, or answer without being asked: how many frames wait.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AppController.h"
#include "app_controller_fixture.h"
#include "wait_until.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int TEN_MINUTES = 60000;  // frames
constexpr auto UNANSWERED = "WARNING: an engine does not answer. the oldest frames are dropped.";

class Backlog : public AppControllerTest {
  protected:
    // The script of an engine that answers its first frames when it has so many.
    static std::string late(int frames) {
        return "unlogged\nlate " + std::to_string(frames) + "\n";
    }

    // So many input frames, their first samples counted from 1, all handed to the MMSE engine.
    void give(int frames) {
        for (int i = 1; i <= frames; ++i) {
            controller_.addReceiveData(audioFrame(FRAME_DATA, i));
            controller_.writeMMSEData();
        }
    }

    // Passes until so many frames have been lined up; type and first sample of those.
    void passUntilLinedUp(size_t frames) {
        std::vector<std::string> mmse;
        std::vector<std::string> server;
        EXPECT_TRUE(waitUntil([&] {
            pass();
            takeAll(mmse, [this](ReceiveData& frame) { return controller_.getMMSEData(frame); });
            takeAll(server,
                    [this](ReceiveData& frame) { return controller_.getServerData(frame); });
            return server.size() >= frames;
        }));
        mmse.resize(frames);
        server.resize(frames);
        mmse_ = mmse;
        server_ = server;
    }

    template <typename Take>
    static void takeAll(std::vector<std::string>& taken, Take take) {
        for (ReceiveData frame; take(frame);)
            taken.push_back(described(frame));
    }

    std::vector<std::string> mmse_;
    std::vector<std::string> server_;
};

// The VAD engine has 60,000 frames and more: everything waits for it.
class SilentVADEngine : public Backlog {
  protected:
    void launchLate(int frames) {
        launch("unlogged\n", late(frames) + "start 1\nstart 6\n");
        for (int i = 1; i <= frames; ++i) {
            controller_.addReceiveData(audioFrame(FRAME_DATA, i));
            pass();
        }
    }
};

TEST_F(SilentVADEngine, TenMinutesWaitForIt) {
    launchLate(TEN_MINUTES);
    passUntilLinedUp(3);
    EXPECT_THAT(mmse_, ElementsAre("1:0", "0:-1", "0:-2"));
    EXPECT_THAT(server_, ElementsAre("1:0", "0:1", "0:2"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

// The frames that were dropped take their late answers with them: START stands where the engine
// found it, ahead of frame 6. Its START ahead of frame 1 is not lost: the state would be wrong.
TEST_F(SilentVADEngine, TheOldestFramesAreDroppedWithTheirAnswers) {
    launchLate(TEN_MINUTES + 5);
    passUntilLinedUp(4);
    EXPECT_THAT(mmse_, ElementsAre("1:0", "1:0", "0:-6", "0:-7"));
    EXPECT_THAT(server_, ElementsAre("1:0", "1:0", "0:6", "0:7"));
    EXPECT_THAT(log_.lines(), ElementsAre(UNANSWERED));
}

using SilentMMSEEngine = Backlog;

TEST_F(SilentMMSEEngine, TheOldestFramesAreDroppedWithTheirAnswers) {
    launch(late(TEN_MINUTES + 5), "unlogged\nstart 6\n");
    give(TEN_MINUTES + 5);
    passUntilLinedUp(2);
    EXPECT_THAT(mmse_, ElementsAre("1:0", "0:-6"));
    EXPECT_THAT(server_, ElementsAre("1:0", "0:6"));
    EXPECT_THAT(log_.lines(), ElementsAre(UNANSWERED));
}

TEST_F(SilentMMSEEngine, AfterClearingNothingIsOwedAndDroppingIsReportedAgain) {
    launch("unlogged\nsilent\n", "");
    give(TEN_MINUTES + 5);
    controller_.finalize();
    controller_.clearData();
    launch(late(TEN_MINUTES + 1), "unlogged\n");
    give(TEN_MINUTES + 1);
    passUntilLinedUp(1);
    EXPECT_THAT(mmse_, ElementsAre("0:-2"));
    EXPECT_THAT(server_, ElementsAre("0:2"));
    EXPECT_THAT(log_.lines(), ElementsAre(UNANSWERED, UNANSWERED));
}

// A dead engine's pipe "delivers" frames without end.
TEST_F(Backlog, OfADeadMMSEEngineIsBoundedWithOneWarning) {
    launch("exit_after 0\n", "silent\n");
    ASSERT_TRUE(waitUntil([] { return endedChild().si_pid != 0; }));
    for (int i = 0; i < TEN_MINUTES; ++i)
        controller_.readMMSEData();
    EXPECT_THAT(log_.lines(), IsEmpty());
    for (int i = 0; i < 3; ++i)
        controller_.readMMSEData();
    EXPECT_THAT(log_.lines(),
                ElementsAre("WARNING: mmse engine runs ahead. its newest frames are dropped."));
}

}  // namespace
