// SPDX-License-Identifier: MIT
// The noise model: when it is renewed, and what it holds.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "MMSEAppController.h"
#include "audio_frames.h"
#include "error_text.h"
#include "mmse_controller_fixture.h"

namespace {

// When the noise model is renewed.

TEST_F(MMSEAppControllerTest, The500thAudioFrameRenewsTheNoiseModel) {
    examine(FRAME_DATA, 499);
    EXPECT_EQ(renewals(), 0);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, TheNextRenewalComesAtFrame1000) {
    examine(FRAME_DATA, 999);
    EXPECT_EQ(renewals(), 1);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 2);
}

TEST_F(MMSEAppControllerTest, ARenewalIsLoggedWithTheSizeOfTheDelayLine) {
    feed(1, 7);
    examine(FRAME_DATA, 500);
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{"INFO: renew noize model.",
                                                      "DEBUG: clear bufffer size:7"}));
}

TEST_F(MMSEAppControllerTest, AnEndFrameAt500PutsTheRenewalOffTo1000) {
    examine(FRAME_DATA, 499);
    examine(FRAME_END);
    examine(FRAME_DATA, 499);
    EXPECT_EQ(renewals(), 0);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, AnOperationFrameTenFramesBackPreventsTheRenewal) {
    examine(FRAME_DATA, 490);
    examine(FRAME_TOF);
    examine(FRAME_DATA, 9);
    EXPECT_EQ(renewals(), 0);
}

TEST_F(MMSEAppControllerTest, AnOperationFrameElevenFramesBackDoesNot) {
    examine(FRAME_DATA, 489);
    examine(FRAME_TOF);
    examine(FRAME_DATA, 10);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, InsideAnUtteranceThereIsNoRenewal) {
    examine(FRAME_START);
    examine(FRAME_DATA, 499);
    EXPECT_TRUE(controller_.checkBufferFrame());
    EXPECT_EQ(renewals(), 0);
}

TEST_F(MMSEAppControllerTest, AnInvalidFrameCountsTowardTheRenewalButIsNotStored) {
    examine(FRAME_DATA, 498);
    EXPECT_THROW(examine(5), AppControllerError);
    EXPECT_TRUE(controller_.checkBufferFrame());
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, AFrameThatCannotBeParsedDoesNotCount) {
    examine(FRAME_DATA, 499);
    EXPECT_THROW(controller_.addVADData(ReceiveData(3)), std::bad_alloc);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, InitializeAndClearDataStartTheCountAnew) {
    examine(FRAME_DATA, 499);
    initialize();
    examine(FRAME_DATA, 499);
    controller_.clearData();
    examine(FRAME_DATA, 499);
    EXPECT_EQ(renewals(), 0);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, InitializeAndClearDataEndAnUtterance) {
    examine(FRAME_START);
    controller_.clearData();
    examine(FRAME_DATA, 10, 3);
    EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(0)), 3);
    examine(FRAME_START);
    initialize();
    examine(FRAME_DATA, 10, 4);
    EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(0)), 4);
}

TEST_F(MMSEAppControllerTest, InitializeAndClearDataForgetTheNoise) {
    addBlocks({5});
    controller_.clearData();
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
    addBlocks({5});
    initialize();
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
}

TEST_F(MMSEAppControllerTest, ClearDataForgetsTheNoiseBlockInTheMaking) {
    examine(FRAME_DATA, 9, 5);
    controller_.clearData();
    examine(FRAME_DATA, 9, 6);
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
}

TEST_F(MMSEAppControllerTest, ClearDataForgetsTheLastFrames) {
    examine(FRAME_DATA, 10);
    controller_.clearData();
    EXPECT_FALSE(controller_.checkBufferFrame());
}

// The average.

TEST_F(MMSEAppControllerTest, NineNoiseFramesMakeNoBlockAndTheTenthDoes) {
    examine(FRAME_DATA, 9, 8);
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
    examine(FRAME_DATA, 1, 8);
    EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(0)), 8);
}

TEST_F(MMSEAppControllerTest, WithoutABlockTheAverageIsTenSilentFrames) {
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
}

TEST_F(MMSEAppControllerTest, OneBlockIsItsOwnAverage) {
    for (const int sample : {0, 1, -1, 32767, -32768, -3}) {
        controller_.clearData();
        EXPECT_EQ(averageOf({sample}), sample);
    }
}

TEST_F(MMSEAppControllerTest, TheAverageIsTakenPositionByPosition) {
    for (int frame = 0; frame < 10; ++frame)
        controller_.addNoiseData(audioFrame(FRAME_DATA, frame, -frame));
    for (int frame = 0; frame < 10; ++frame)
        controller_.addNoiseData(audioFrame(FRAME_DATA, 3 * frame, -3 * frame));
    const ReceiveQueue noise = controller_.createAverageNoise();
    EXPECT_EQ(noise[7], audioFrame(FRAME_DATA, 14, -14));
    EXPECT_EQ(noise[1], audioFrame(FRAME_DATA, 2, -2));
}

TEST_F(MMSEAppControllerTest, TheHeadersOfNoiseFramesAreNotLookedAt) {
    for (int i = 0; i < 10; ++i)
        controller_.addNoiseData(audioFrame(FRAME_TOF, 6, 6));
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 6);
}

TEST_F(MMSEAppControllerTest, OverTwoBlocksASumOfMinusThreeGivesMinusTwo) {
    EXPECT_EQ(averageOf({-1, -2}), -2);
}

TEST_F(MMSEAppControllerTest, OverTwoBlocksASumOfThreeGivesOne) {
    EXPECT_EQ(averageOf({1, 2}), 1);
}

// The unsigned division: negative averages over three blocks are large positive samples.
TEST_F(MMSEAppControllerTest, OverThreeBlocksASumOfMinusThreeGives21844) {
    EXPECT_EQ(averageOf({-1, -1, -1}), 21844);
}

TEST_F(MMSEAppControllerTest, OverThreeBlocksASumOfMinusOneGives21845) {
    EXPECT_EQ(averageOf({0, -1, 0}), 21845);
}

TEST_F(MMSEAppControllerTest, OverThreeBlocksASumOfMinus300Gives21745) {
    EXPECT_EQ(averageOf({-100, -100, -100}), 21745);
}

TEST_F(MMSEAppControllerTest, OverThreeBlocksAPositiveSumIsRoundedDown) {
    EXPECT_EQ(averageOf({3, 4, 4}), 3);
    controller_.clearData();
    EXPECT_EQ(averageOf({32767, 32767, 32767}), 32767);
}

TEST_F(MMSEAppControllerTest, OverThreeBlocksTheLowestSampleGivesMinus10923) {
    EXPECT_EQ(averageOf({-32768, -32768, -32768}), -10923);
}

TEST_F(MMSEAppControllerTest, OverFourBlocksSumsOf8AndMinus5Give2AndMinus2) {
    EXPECT_EQ(averageOf({1, 2, 2, 3}), 2);
    controller_.clearData();
    EXPECT_EQ(averageOf({-1, -1, -1, -2}), -2);
}

TEST_F(MMSEAppControllerTest, OfSevenBlocksTheNewestFourAreAveraged) {
    EXPECT_EQ(averageOf({10, 20, 30, 40, 50, 60, 70}), 55);
}

TEST_F(MMSEAppControllerTest, TheOlderBlocksAreGoneForGood) {
    averageOf({10, 20, 30, 40, 50, 60, 70});
    EXPECT_EQ(averageOf({100}), (50 + 60 + 70 + 100) / 4);
}

TEST_F(MMSEAppControllerTest, FourBlocksSurviveAnAverage) {
    averageOf({1, 2, 3, 6});
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 3);
}

TEST_F(MMSEAppControllerTest, AFrameOfMoreThan160SamplesIsOutOfRange) {
    for (int i = 0; i < 10; ++i)
        controller_.addNoiseData(makeFrame(FRAME_DATA, 322));
    EXPECT_EQ(errorOf<std::out_of_range>([this] { controller_.createAverageNoise(); }),
              "vector::_M_range_check");
}

TEST_F(MMSEAppControllerTest, OutOfRangeLeavesThroughTheExamination) {
    for (int i = 0; i < 499; ++i)
        controller_.addVADData(makeFrame(FRAME_DATA, 322));
    EXPECT_EQ(errorOf<std::out_of_range>([this] { examine(FRAME_DATA); }),
              "vector::_M_range_check");
}

TEST_F(MMSEAppControllerTest, AShortFrameAddsTheSamplesThatItHas) {
    for (int i = 0; i < 10; ++i)
        controller_.addNoiseData(makeFrame(FRAME_DATA, 2, 1));
    EXPECT_EQ(controller_.createAverageNoise().at(0), audioFrame(FRAME_DATA, 0x0101, 0));
}

TEST_F(MMSEAppControllerTest, ANoiseFrameOfAnOddSizeThrowsWhatTheParserThrows) {
    for (int i = 0; i < 10; ++i)
        controller_.addNoiseData(makeFrame(FRAME_DATA, 319));
    EXPECT_THROW(controller_.createAverageNoise(), std::invalid_argument);
}

}  // namespace
