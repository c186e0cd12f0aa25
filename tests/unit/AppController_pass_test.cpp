// SPDX-License-Identifier: MIT
// What a pass moves, and what the queues keep.
#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "AppController.h"
#include "app_controller_fixture.h"
#include "audio_frames.h"
#include "faults.h"
#include "wait_until.h"

namespace {

using faults::Call;

TEST_F(AppControllerTest, OnePassMovesOneFrameIntoEachEngineAndDrainsTheVADEngine) {
    launchEmitting("0 0 0", "0 0 0");
    feed("0 0 0");
    faults::clear();
    pass();
    EXPECT_EQ(faults::callsOf(Call::WRITE), 2);
    EXPECT_EQ(faults::callsOf(Call::READ), 1 + 3);
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
    faults::shortenNext(Call::READ, 4);
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
    faults::shortenNext(Call::READ, 4);
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

}  // namespace
