// SPDX-License-Identifier: MIT
// Lining up three streams: align(MMSE output, VAD output, input).
#include <gtest/gtest.h>

#include "AppController.h"
#include "app_controller_fixture.h"
#include "audio_frames.h"

namespace {

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

}  // namespace
