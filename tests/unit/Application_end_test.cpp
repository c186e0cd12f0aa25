// SPDX-License-Identifier: MIT
// How a run ends.
#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <stdexcept>
#include <string>

#include "AppController.h"
#include "Application.h"
#include "application_fixture.h"
#include "audio_frames.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"

namespace {

using faults::Call;

TEST_F(ApplicationTest, ALostSoundClientEndsTheRunWithTrueAndDisconnectsBothPeers) {
    initialize();
    whenConnected([this] { sound_.reset(); });
    EXPECT_TRUE(app_->run());
    EXPECT_EQ(errors_.text(), CONNECTED + "[SoundClientError] Unknown Exception.\n");
    EXPECT_TRUE(voice_.seesEnd());
}

TEST_F(ApplicationTest, ALostVoiceServerEndsTheRunWithTrueAndDisconnectsBothPeers) {
    initialize();
    whenConnected([this] { voice_.reset(); });
    EXPECT_TRUE(app_->run());
    EXPECT_EQ(errors_.text(), CONNECTED + "[VoiceServerError] Data connector read failed.\n");
    EXPECT_TRUE(sound_.seesEnd());
}

TEST_F(ApplicationTest, ALostPeerLeavesTheEnginesToFinalize) {
    initialize();
    whenConnected([this] { voice_.reset(); });
    app_->run();
    EXPECT_TRUE(hasChildren());
    app_->finalize();
    EXPECT_FALSE(hasChildren());
}

// Only what waits in the delay line outlives the link.
TEST_F(ApplicationTest, ALostPeerDropsTheFramesThatTheEnginesHad) {
    engines_.vad.follow("silent\n");
    initialize();
    whenConnected([] {});
    inEachPass([this] {
        if (!voice_.isOpen())
            return;
        voice_.send(textOf(audioFrame(FRAME_DATA, ++sent_)));
        if (!engines_.vad.frames().empty())
            voice_.reset();
    });
    EXPECT_TRUE(app_->run());

    faults::clear();
    const int lost = sent_;
    engines_.vad.follow("");
    whenConnected([] {});
    runUntil([this] { return framesIn(results_) >= 1; });
    EXPECT_GE(sampleOf(frameOf(results_, 0)), lost - 9);
}

TEST_F(ApplicationTest, ALostPeerIsNotConnectedAgain) {
    initialize();
    whenConnected([this] { voice_.reset(); });
    app_->run();
    EXPECT_EQ(faults::callsOf(Call::ACCEPT), 1);
    EXPECT_EQ(faults::callsOf(Call::SLEEP), 0);
}

TEST_F(ApplicationTest, ASoundClientThatClosesInOrderIsNotNoticed) {
    initialize();
    whenConnected([this] { sound_.close(); });
    runUntil([this] { return sent_ >= 5; });
}

TEST_F(ApplicationTest, AFailedPlaySoundCommandEndsTheRunWithTrue) {
    initialize();
    whenConnected([this] {
        node_.say("play_sound_on\n");
        sound_.close();
        faults::failNext(Call::WRITE, EPIPE);
    });
    EXPECT_TRUE(app_->run());
    EXPECT_EQ(errors_.text(), CONNECTED + "[SoundClientError] Sound client write failed.\n");
}

TEST_F(ApplicationTest, AnEngineErrorIsReportedAndThrownOn) {
    engines_.vad.follow("emit 5\nsilent\n");
    engines_.mmse.follow("emit 0\nsilent\n");
    initialize();
    whenConnected([] {});
    inEachPass([this] { voice_.send(textOf(audioFrame(FRAME_DATA, 1))); });
    EXPECT_EQ(errorOf<AppControllerError>([this] { app_->run(); }),
              "[AppcontrollerError] Unknown Exception.");
    EXPECT_EQ(errors_.text(), CONNECTED + "[AppcontrollerError] Unknown Exception.\n");
}

TEST_F(ApplicationTest, AClosedStandardInputIsReportedAndThrownOn) {
    initialize();
    whenConnected([this] { node_.hangUp(); });
    EXPECT_EQ(errorOf<ROSConnectorError>([this] { app_->run(); }),
              "[ROSConnectorError] ROS connector read failed.");
    EXPECT_EQ(errors_.text(), CONNECTED + "[ROSConnectorError] ROS connector read failed.\n");
}

// The second select of a run is the first wait for the voice server's data.
TEST_F(ApplicationTest, AnyOtherErrorIsFatalAndThrownOn) {
    initialize();
    whenConnected([] {});
    faults::afterNext(Call::SELECT, [] { throw std::bad_alloc(); }, {.skip = 1});
    EXPECT_THROW(app_->run(), std::bad_alloc);
    EXPECT_EQ(errors_.text(), CONNECTED + "[FATAL] Unknown Exception\n");
}

TEST_F(ApplicationTest, ARuntimeErrorOfNoComponentIsFatalToo) {
    initialize();
    whenConnected([] {});
    faults::afterNext(Call::SELECT, [] { throw std::runtime_error("text"); }, {.skip = 1});
    EXPECT_EQ(errorOf<std::runtime_error>([this] { app_->run(); }), "text");
    EXPECT_EQ(errors_.text(), CONNECTED + "[FATAL] Unknown Exception\n");
}

}  // namespace
