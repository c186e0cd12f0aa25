// SPDX-License-Identifier: MIT
// The road of a frame.
#include <gtest/gtest.h>

#include <string>

#include "Application.h"
#include "application_fixture.h"
#include "audio_frames.h"

namespace {

TEST_F(ApplicationTest, CleanedFramesReturnBigEndian) {
    initialize();
    whenConnected([] {});
    runUntil([this] { return framesIn(returned_) >= 2; });
    std::string expected(324, '\0');
    expected[4] = static_cast<char>(0xFF);  // the engine negates: -1
    expected[5] = static_cast<char>(0xFF);
    // The first pass found no frame and moved one of silence.
    EXPECT_EQ(returned_.substr(0, 324), std::string(324, '\0'));
    EXPECT_EQ(returned_.substr(324, 324), expected);
}

TEST_F(ApplicationTest, MarkersReturnWithABigEndianHeader) {
    engines_.vad.follow("start 1\n");
    initialize();
    whenConnected([] {});
    runUntil([this] { return framesIn(returned_) >= 1; });
    EXPECT_EQ(returned_.substr(0, 324), std::string("\0\0\0\1", 4) + std::string(320, '\0'));
}

TEST_F(ApplicationTest, ResultsReachTheNodeAsTheyAre) {
    engines_.vad.follow("start 2\n");
    initialize();
    whenConnected([] {});
    runUntil([this] { return framesIn(results_) >= 3; });
    EXPECT_EQ(frameOf(results_, 0), audioFrame(FRAME_DATA, 0));
    EXPECT_EQ(frameOf(results_, 1), makeFrame(FRAME_START));
    EXPECT_EQ(frameOf(results_, 2), audioFrame(FRAME_DATA, 1));
}

TEST_F(ApplicationTest, APassWithoutDataHandsInABlockOfZeros) {
    initialize();
    whenConnected([] {});
    runUntil([this] { return engines_.mmse.frames().size() > 6; });
    EXPECT_EQ(engines_.mmse.frames().substr(0, 7), "0:0 0:1");
}

TEST_F(ApplicationTest, WhatDoesNotComeIsSilenceAmidAStreamToo) {
    bool cut = false;
    initialize();
    whenConnected([] {});
    inEachPass([&] {
        returned_ += voice_.arrived();
        results_ += node_.output();
        // By then every slot of the queues has held a frame.
        if (framesIn(results_) >= 60 && !cut) {
            voice_.send(textOf(audioFrame(FRAME_TOF, 77)).substr(0, 5));
            cut = true;
        } else if (!cut && sent_ < static_cast<int>(framesIn(returned_)) + AHEAD) {
            voice_.send(textOf(audioFrame(FRAME_DATA, 0x0101)));
            ++sent_;
        } else if (engines_.mmse.frames().find("9:") != std::string::npos) {
            node_.hangUp();
        }
    });
    EXPECT_THROW(app_->run(), ROSConnectorError);
    EXPECT_NE(engines_.mmse.frames().find(" 9:77"), std::string::npos) << engines_.mmse.frames();
}

TEST_F(ApplicationTest, AShortReadIsUsedAsAWholeBlock) {
    initialize();
    whenConnected([this] { voice_.send(textOf(audioFrame(FRAME_TOF, 77)).substr(0, 5)); });
    runUntil([this] { return !engines_.mmse.frames().empty(); });
    EXPECT_EQ(engines_.mmse.frames().substr(0, 4), "9:77");
}

TEST_F(ApplicationTest, WithEpdOffNoResultReachesTheNode) {
    initialize();
    whenConnected([this] { sound_.send("EPD_OFF\r\n\r\n"); });
    runUntil([this] { return framesIn(returned_) >= 5; });
    EXPECT_EQ(results_, "");
}

TEST_F(ApplicationTest, WhileTheNodePlaysNoResultReachesItAndTheSoundClientIsTold) {
    initialize();
    whenConnected([this] { node_.say("play_sound_on\n"); });
    runUntil([this] { return framesIn(returned_) >= 5; });
    EXPECT_EQ(results_, "");
    EXPECT_EQ(sound_.receive(8), "epdoff\n\n");
}

TEST_F(ApplicationTest, ResultsThatCameWhileTheNodePlayedAreDiscarded) {
    initialize();
    whenConnected([this] { node_.say("play_sound_on\n"); });
    bool told = false;
    runUntil([&] {
        if (!told && framesIn(returned_) >= 5) {
            told = true;
            node_.say("play_sound_off\n");
        }
        return framesIn(results_) >= 1;
    });
    EXPECT_GE(sampleOf(frameOf(results_, 0)), 5);
    EXPECT_EQ(sound_.receive(15), "epdoff\n\nepdon\n\n");
}

}  // namespace
