// SPDX-License-Identifier: MIT
#include "AppController.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "AppConnector.h"
#include "audio_frames.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "scripted_engines.h"
#include "wait_until.h"

namespace {

using faults::Call;

class Controller : public AppController {
  public:
    using AppController::createResultData;
    using AppController::getFrameSyncHeader;
    using AppController::isOpen;
    using AppController::readMMSEData;
    using AppController::readVADData;
    using AppController::writeMMSEData;
    using AppController::writeVADData;
};

// Streams are lists of frame types: "9 0 1". Frames that an engine emits are numbered from 1,
// input frames from 101.
class AppControllerTest : public HermeticTest {
  protected:
    AppControllerTest() {
        controller_.initialize(SCRIPTED_ENGINE, engines_.mmse.settings(), engines_.vad.settings());
    }

    void launch(const std::string& mmse_script = "", const std::string& vad_script = "") {
        engines_.mmse.follow(mmse_script);
        engines_.vad.follow(vad_script);
        controller_.launch();
    }

    // Engines that say what they are told and do not answer; returns when all of it is in the
    // pipes, so that a pass finds the same whatever the machine is busy with.
    void launchEmitting(const std::string& mmse_types, const std::string& vad_types) {
        const auto script = [](const std::string& types) { return "emit " + types + "\nsilent\n"; };
        launch(script(mmse_types), script(vad_types));
        EXPECT_TRUE(mmse_types.empty() || engines_.mmse.hasLogged("emitted"));
        EXPECT_TRUE(vad_types.empty() || engines_.vad.hasLogged("emitted"));
    }

    void feed(const std::string& types) {
        std::istringstream words(types);
        for (int type = 0; words >> type;)
            controller_.addReceiveData(audioFrame(type, 101 + fed_++));
    }

    void pass(int times = 1) {
        for (int i = 0; i < times; ++i)
            EXPECT_TRUE(controller_.process());
    }

    // Lines up three streams as far as that goes.
    void align(const std::string& mmse, const std::string& vad, const std::string& input) {
        launchEmitting(mmse, vad);
        feed(input);
        pass(20);
    }

    std::string mmse() {
        return describedAll([this](ReceiveData& frame) { return controller_.getMMSEData(frame); });
    }
    std::string server() {
        return describedAll(
            [this](ReceiveData& frame) { return controller_.getServerData(frame); });
    }
    std::string errorOfPass() {
        return errorOf<AppControllerError>([this] { controller_.process(); });
    }

    ScriptedEngines engines_;
    LogCapture log_;
    Controller controller_;
    int fed_ = 0;
};

TEST_F(AppControllerTest, ErrorTextCarriesTheTagWithItsLowerCaseC) {
    EXPECT_STREQ(AppControllerError("text").what(), "[AppcontrollerError] text");
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, AppControllerError>));
}

TEST_F(AppControllerTest, InitializeReturnsTrueAndStartsNothing) {
    EXPECT_TRUE(controller_.initialize("a", "b", "c"));
    EXPECT_FALSE(controller_.isOpen());
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppControllerTest, ProcessBeforeLaunchReturnsFalseAndTouchesNoQueue) {
    feed("0");
    EXPECT_FALSE(controller_.process());
    launch("", "");
    pass();
    EXPECT_TRUE(engines_.mmse.hasLogged("frame 0 101"));
}

TEST_F(AppControllerTest, FinalizeBeforeLaunchReturnsTrue) {
    EXPECT_TRUE(controller_.finalize());
    EXPECT_TRUE(controller_.finalize());
}

TEST_F(AppControllerTest, EmptyQueuesYieldFalseAndLeaveTheData) {
    ReceiveData data = bytesOf("kept");
    EXPECT_FALSE(controller_.getMMSEData(data));
    EXPECT_FALSE(controller_.getServerData(data));
    EXPECT_EQ(data, bytesOf("kept"));
}

TEST_F(AppControllerTest, LaunchStartsBothEnginesWithTheirSettings) {
    EXPECT_TRUE(controller_.launch());
    EXPECT_TRUE(controller_.isOpen());
    EXPECT_TRUE(engines_.vad.hasLogged("start"));
    EXPECT_TRUE(engines_.mmse.hasLogged("start"));
}

TEST_F(AppControllerTest, AFailingVADLaunchNamesTheVADConnector) {
    faults::failNext(Call::Pipe, EMFILE);
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.launch(); }),
              withSystemText("[AppcontrollerError] VAD connector launch failed. "
                             "[AppConnectorError] Parent to child pipe create failed. error : ",
                             EMFILE));
    EXPECT_FALSE(controller_.isOpen());
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppControllerTest, TheVADEngineIsStartedBeforeTheMMSEEngine) {
    faults::failNext(Call::Pipe, EMFILE, {.skip = 2});
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.launch(); }),
              withSystemText("[AppcontrollerError] MMSE connector launch failed. "
                             "[AppConnectorError] Parent to child pipe create failed. error : ",
                             EMFILE));
    EXPECT_TRUE(engines_.vad.hasLogged("start"));
}

TEST_F(AppControllerTest, FinalizeAfterAFailedLaunchStopsTheEngineThatWasStarted) {
    faults::failNext(Call::Pipe, EMFILE, {.skip = 2});
    EXPECT_THROW(controller_.launch(), AppControllerError);
    EXPECT_FALSE(controller_.process());
    EXPECT_TRUE(controller_.finalize());
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppControllerTest, FinalizeStopsBothEnginesAndEmptiesTheQueues) {
    align("0", "0", "0 0");
    EXPECT_TRUE(controller_.finalize());
    EXPECT_FALSE(hasChildren());
    EXPECT_FALSE(controller_.isOpen());
    EXPECT_EQ(mmse() + server(), "");
}

TEST_F(AppControllerTest, AfterFinalizeProcessReturnsFalse) {
    launch();
    controller_.finalize();
    EXPECT_FALSE(controller_.process());
    EXPECT_TRUE(controller_.finalize());
}

TEST_F(AppControllerTest, AConnectorErrorLeavesFinalizeUnchanged) {
    launch();
    faults::failNext(Call::Kill, EPERM);
    EXPECT_EQ(errorOf<AppConnectorError>([this] { controller_.finalize(); }),
              withSystemText("[AppConnectorError] Kill child process failed. error : ", EPERM));
    EXPECT_TRUE(controller_.isOpen());
}

TEST_F(AppControllerTest, TheVADEngineIsStoppedFirst) {
    launch();
    ASSERT_TRUE(engines_.vad.hasLogged("start") && engines_.mmse.hasLogged("start"));
    faults::failNext(Call::Kill, EPERM, {.skip = 1});
    EXPECT_THROW(controller_.finalize(), AppConnectorError);
    EXPECT_EQ(kill(engines_.vad.pids().at(0), 0), -1);
    EXPECT_EQ(kill(engines_.mmse.pids().at(0), 0), 0);
}

TEST_F(AppControllerTest, TheDestructorStopsBothEngines) {
    auto other = std::make_unique<Controller>();
    other->initialize(SCRIPTED_ENGINE, engines_.mmse.settings(), engines_.vad.settings());
    other->launch();
    other.reset();
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppControllerTest, AFailingDestructorLogsAndTheConnectorsStopTheirEngines) {
    auto other = std::make_unique<Controller>();
    other->initialize(SCRIPTED_ENGINE, engines_.mmse.settings(), engines_.vad.settings());
    other->launch();
    faults::failNext(Call::Kill, EPERM);
    other.reset();
    EXPECT_EQ(log_.lines(),
              std::vector{withSystemText(
                  "ERROR: [AppConnectorError] Kill child process failed. error : ", EPERM)});
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppControllerTest, OnePassMovesOneFrameIntoEachEngineAndDrainsTheVADEngine) {
    launchEmitting("0 0 0", "0 0 0");
    feed("0 0 0");
    faults::clear();
    pass();
    EXPECT_EQ(faults::callsOf(Call::Write), 2);
    EXPECT_EQ(faults::callsOf(Call::Read), 1 + 3);
    EXPECT_EQ(faults::microsecondsAsked(), 0);  // it polls
}

TEST_F(AppControllerTest, InputGoesToTheMMSEEngineAndItsOutputToTheVADEngine) {
    launch("", "");
    feed("9 0");
    EXPECT_TRUE(waitUntil([this] {
        pass();
        return engines_.vad.frames() == "9:-101 0:-102";
    }));
    EXPECT_EQ(engines_.mmse.frames(), "9:101 0:102");
}

TEST_F(AppControllerTest, StartAndEndFramesOfTheMMSEEngineReachOnlyTheVADEngine) {
    align("1 0 2 0", "0 0", "0 0");
    EXPECT_EQ(mmse(), "0:2 0:4");
    EXPECT_EQ(server(), "0:101 0:102");
    EXPECT_TRUE(engines_.vad.hasLogged("frame 0 4"));
    EXPECT_EQ(engines_.vad.frames(), "1:1 0:2 2:3 0:4");
}

TEST_F(AppControllerTest, MMSEFramesOfUnknownTypeReachOnlyTheVADEngine) {
    align("5 0", "0 0", "0 0");
    EXPECT_EQ(mmse(), "0:2");
    EXPECT_TRUE(engines_.vad.hasLogged("frame 5 1"));
}

TEST_F(AppControllerTest, AShortFrameCountsAsAWholeOneFilledWithZeros) {
    launchEmitting("0", "0");
    feed("0");
    faults::shortenNext(Call::Read, 4);
    pass();
    EXPECT_EQ(mmse(), "0:0");
}

TEST_F(AppControllerTest, AShortFrameHoldsNothingOfEarlierOnes) {
    const int passes = 40;  // by then every slot of the queues has held a frame
    std::string types;
    for (int i = 0; i < passes; ++i)
        types += "0 ";
    launchEmitting(types, types);
    feed(types);
    for (int i = 1; i < passes; ++i) {
        controller_.clearProcessData();
        pass();
    }
    EXPECT_EQ(mmse(), "0:39");
    faults::shortenNext(Call::Read, 4);
    pass();
    EXPECT_EQ(mmse(), "0:0");
}

TEST_F(AppControllerTest, ClearProcessDataDropsFinishedFramesOnly) {
    align("0 0", "0", "0 0 0");
    controller_.clearProcessData();
    EXPECT_EQ(mmse() + server(), "");
    EXPECT_TRUE(controller_.isOpen());
}

TEST_F(AppControllerTest, FramesOnTheirWaySurviveClearProcessData) {
    launch("", "");
    feed("0");
    pass();
    controller_.clearProcessData();
    std::string result;
    EXPECT_TRUE(waitUntil([&] {
        pass();
        return !(result = server()).empty();
    }));
    EXPECT_EQ(result, "0:101");
}

TEST_F(AppControllerTest, ClearDataDropsInputThatWaits) {
    feed("0 0");
    controller_.clearData();
    launch("", "");
    feed("0");
    pass();
    EXPECT_TRUE(engines_.mmse.hasLogged("frame 0 103"));
    EXPECT_EQ(engines_.mmse.frames(), "0:103");
}

// The engine's answer to the first frame then meets the second.
TEST_F(AppControllerTest, ClearDataDropsInputThatWaitsToBeLinedUp) {
    launch("", "");
    feed("0");
    controller_.writeMMSEData();
    controller_.clearData();
    feed("0");
    std::string result;
    EXPECT_TRUE(waitUntil([&] {
        pass();
        return !(result = server()).empty();
    }));
    EXPECT_EQ(result, "0:102");
    EXPECT_EQ(mmse(), "0:-101");
}

TEST_F(AppControllerTest, HeaderReaderReadsTheLittleEndianType) {
    const auto frame = audioFrame(FRAME_TOF, 1);
    EXPECT_EQ(controller_.getFrameSyncHeader(frame.data(), 324), 9);
    EXPECT_THROW(controller_.getFrameSyncHeader(frame.data(), 323), std::invalid_argument);
}

TEST_F(AppControllerTest, EachEOFLogsAndResetsTheFrameCountsButNotTheUnknownOnes) {
    launchEmitting("10 0 0 1 2 9 10 5 10", "0");
    pass(9);
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 3u);  // the first one ends what earlier tests counted
    unsigned unknown = 0;
    EXPECT_EQ(sscanf(lines[1].c_str(), "DEBUG: mmse:: data:2 start:1 end:1 tof:1 eof:1 unknown:%u",
                     &unknown),
              1);
    EXPECT_EQ(lines[2], "DEBUG: mmse:: data:0 start:0 end:0 tof:0 eof:1 unknown:" +
                            std::to_string(unknown + 1));
}

// Lining up three streams: align(MMSE output, VAD output, input).

TEST_F(AppControllerTest, NothingIsLinedUpWithoutVADFrames) {
    align("0 0", "", "0 0");
    EXPECT_EQ(mmse() + server(), "");
}

TEST_F(AppControllerTest, NothingIsLinedUpWithoutInput) {
    align("0 0", "0 0", "");
    EXPECT_EQ(mmse() + server(), "");
}

TEST_F(AppControllerTest, DataTOFAndEOFFramesAreLinedUpOneByOne) {
    align("9 0 10", "9 0 10", "9 0 10");
    EXPECT_EQ(mmse(), "9:1 0:2 10:3");
    EXPECT_EQ(server(), "9:101 0:102 10:103");
}

TEST_F(AppControllerTest, OnlyTheVADHeaderDecidesOutsideOfTOF) {
    align("10 0", "0 10", "0 5");
    EXPECT_EQ(mmse(), "10:1 0:2");
    EXPECT_EQ(server(), "0:101 5:102");
}

TEST_F(AppControllerTest, AStartMarkerComesAheadOfTheFramesThatItWasFoundWith) {
    align("0 0", "0 1 0", "0 0");
    EXPECT_EQ(mmse(), "0:1 1:0 0:2");
    EXPECT_EQ(server(), "0:101 1:0 0:102");
}

TEST_F(AppControllerTest, AnEndMarkerRemovesOnlyTheVADFrame) {
    align("0 0", "2 0 2 0", "0 0");
    EXPECT_EQ(mmse(), "2:0 0:1 2:0 0:2");
    EXPECT_EQ(server(), "2:0 0:101 2:0 0:102");
}

TEST_F(AppControllerTest, AMarkerIsAFullFrameOfZerosBehindItsHeader) {
    align("0", "1", "0");
    ReceiveData marker;
    EXPECT_TRUE(controller_.getMMSEData(marker));
    EXPECT_EQ(marker, makeFrame(FRAME_START));
    EXPECT_TRUE(controller_.getServerData(marker));
    EXPECT_EQ(marker, makeFrame(FRAME_START));
}

TEST_F(AppControllerTest, AMarkerWaitsUntilAllThreeStreamsHaveFrames) {
    align("", "1 1", "0 0");
    EXPECT_EQ(mmse() + server(), "");
}

TEST_F(AppControllerTest, ATOFOfTheVADDropsInputUntilItsTOF) {
    align("9 0", "9 0", "0 0 9 0");
    EXPECT_EQ(mmse(), "9:1 0:2");
    EXPECT_EQ(server(), "9:103 0:104");
}

TEST_F(AppControllerTest, ATOFTwoFramesLateInTheMMSEStreamDropsTheTwoFramesAheadOfIt) {
    align("0 0 9 0", "9 0", "9 0");
    EXPECT_EQ(mmse(), "9:3 0:4");
    EXPECT_EQ(server(), "9:101 0:102");
}

TEST_F(AppControllerTest, ATOFOfTheVADWaitsForBothOtherStreams) {
    align("0 9 0", "9 0", "0 0 9 0");
    EXPECT_EQ(mmse(), "9:2 0:3");
    EXPECT_EQ(server(), "9:103 0:104");
}

TEST_F(AppControllerTest, ATOFOfTheMMSEEngineDropsInputAndThenVADFrames) {
    align("9 0", "0 0 9 0", "0 9 0");
    EXPECT_EQ(mmse(), "9:1 0:2");
    EXPECT_EQ(server(), "9:102 0:103");
}

TEST_F(AppControllerTest, ATOFOfTheInputDropsMMSEAndThenVADFrames) {
    align("0 0 9 0", "0 9 0", "9 0");
    EXPECT_EQ(mmse(), "9:3 0:4");
    EXPECT_EQ(server(), "9:101 0:102");
}

TEST_F(AppControllerTest, AMarkerAheadOfALateTOFIsDropped) {
    align("9 0", "1 9 0", "9 0");
    EXPECT_EQ(mmse(), "9:1 0:2");
}

TEST_F(AppControllerTest, TOFComesBeforeTheCheckOfTheVADHeader) {
    align("9", "5 9", "9");
    EXPECT_EQ(mmse(), "9:1");
}

TEST_F(AppControllerTest, AnInvalidVADHeaderIsAnUnknownException) {
    launchEmitting("0", "5");
    feed("0");
    EXPECT_EQ(errorOfPass(), "[AppcontrollerError] Unknown Exception.");
}

TEST_F(AppControllerTest, TheDroppedTextNamesTheVADHeader) {
    launchEmitting("0", "5");
    feed("0");
    errorOfPass();
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.createResultData(); }),
              "[AppcontrollerError] Invalid header type : 5");
}

TEST_F(AppControllerTest, ANegativeVADHeaderIsNamedWithItsSign) {
    launchEmitting("0", "-1");
    feed("0");
    errorOfPass();
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.createResultData(); }),
              "[AppcontrollerError] Invalid header type : -1");
}

TEST_F(AppControllerTest, AnInvalidVADFrameStaysInFront) {
    launchEmitting("0", "5");
    feed("0");
    errorOfPass();
    EXPECT_EQ(errorOfPass(), "[AppcontrollerError] Unknown Exception.");
}

TEST_F(AppControllerTest, AFailedWaitCarriesBothTags) {
    launch("", "");
    faults::failNext(Call::Select, EINTR);
    EXPECT_EQ(errorOfPass(),
              withSystemText(
                  "[AppcontrollerError] [AppConnectorError] Pipe select failed. error : ", EINTR));
}

TEST_F(AppControllerTest, AFailedReadCarriesBothTags) {
    launchEmitting("0", "0");
    faults::failNext(Call::Read, EIO);
    EXPECT_EQ(
        errorOfPass(),
        withSystemText("[AppcontrollerError] [AppConnectorError] Pipe read failed. error : ", EIO));
}

TEST_F(AppControllerTest, AFailedWriteCarriesBothTagsAndKeepsTheFrame) {
    launch("", "");
    feed("0");
    faults::failNext(Call::Write, EIO);
    EXPECT_EQ(errorOfPass(),
              withSystemText("[AppcontrollerError] [AppConnectorError] Pipe write failed. error : ",
                             EIO));
    pass();
    EXPECT_TRUE(engines_.mmse.hasLogged("frame 0 101"));
}

TEST_F(AppControllerTest, AFailedWriteToTheVADEngineKeepsTheFrame) {
    launchEmitting("0", "0");
    faults::failNext(Call::Write, EIO);
    EXPECT_NE(errorOfPass(), "");
    pass();
    EXPECT_TRUE(engines_.vad.hasLogged("frame 0 1"));
}

TEST_F(AppControllerTest, AnyOtherErrorLosesItsText) {
    launch("", "");
    faults::afterNext(Call::Select, [] { throw std::runtime_error("[AppcontrollerError] text"); });
    EXPECT_EQ(errorOfPass(), "[AppcontrollerError] Unknown Exception.");
}

TEST_F(AppControllerTest, AnAppControllerErrorInsideAPassLosesItsText) {
    launch("", "");
    faults::afterNext(Call::Select, [] { throw AppControllerError("text"); });
    EXPECT_EQ(errorOfPass(), "[AppcontrollerError] Unknown Exception.");
}

// Dead engines.

TEST_F(AppControllerTest, ADeadMMSEEngineYieldsZeroFilledDataFrames) {
    launch("silent\nexit_after 1\n", "");
    feed("0");
    pass();
    ASSERT_TRUE(waitUntil([] { return endedChild().si_pid != 0; }));
    std::string result;
    EXPECT_TRUE(waitUntil([&] {
        pass();
        return !(result = mmse()).empty();
    }));
    EXPECT_EQ(result, "0:0");
    EXPECT_EQ(server(), "0:101");
}

class DeadVADEngine : public AppControllerTest {
  protected:
    void launchDead(const std::string& mmse_script, const std::string& vad_script) {
        launch(mmse_script, vad_script + "exit_after 0\n");
        ASSERT_TRUE(waitUntil([] { return endedChild().si_pid != 0; }));
        faults::clear();
    }
};

TEST_F(DeadVADEngine, DoesNotTrapTheLoop) {
    launchDead("silent\n", "");
    pass();
    EXPECT_GE(faults::callsOf(Call::Read), 630);  // what a pipe can hold is read in one pass
    EXPECT_LT(faults::callsOf(Call::Read), 1000);
}

// The buffer is zeroed once a pass, not once a read: a read that brings nothing repeats the frame
// before it.
TEST_F(DeadVADEngine, RepeatsItsLastFrameWithinThePassAndThenYieldsSilence) {
    launchDead("emit 0\nsilent\n", "emit 1\n");
    ASSERT_TRUE(engines_.mmse.hasLogged("emitted"));
    feed("0");
    faults::answerNext(Call::Write, 324, {.skip = 1});  // the VAD engine cannot take a frame
    pass();
    EXPECT_EQ(server().substr(0, 12), "1:0 1:0 1:0 ");
    pass();
    EXPECT_EQ(server(), "0:101");
}

TEST_F(DeadVADEngine, FillsABoundedQueueWithOneWarning) {
    launchDead("silent\n", "");
    pass(100);
    EXPECT_EQ(log_.lines(), std::vector<std::string>{
                                "WARNING: vad engine runs ahead. its newest frames are dropped."});
}

}  // namespace
