// SPDX-License-Identifier: MIT
#include "Application.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "AppController.h"
#include "audio_frames.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "loopback_peer.h"
#include "play_sound.h"
#include "scripted_engines.h"
#include "stdio_pipes.h"

namespace {

using faults::Call;

// The operators' messages, which bypass the log.
class ErrorStreamCapture {
  public:
    ErrorStreamCapture() : old_(std::cerr.rdbuf(stream_.rdbuf())) {}
    ~ErrorStreamCapture() { std::cerr.rdbuf(old_); }
    std::string text() const { return stream_.str(); }

  private:
    std::ostringstream stream_;
    std::streambuf* old_;
};

// The whole bridge in this process, between a voice server, a sound client, a ROS node and two
// engines of the test. Everything that the peers do while run() runs is hung onto calls that it
// makes: they connect when it listens, and act when it polls standard input, once in each pass.
class ApplicationTest : public HermeticTest {
  protected:
    ApplicationTest() { forgetPlaySound(); }
    ~ApplicationTest() override { forgetPlaySound(); }

    void initialize() {
        EXPECT_TRUE(app_->initialize(SCRIPTED_ENGINE, engines_.mmse.settings(),
                                     engines_.vad.settings(), "127.0.0.1", sound_listener_.port(),
                                     port_));
    }

    // The peers connect; then they do this, before the first pass.
    void whenConnected(std::function<void()> step, int attempt = 0) {
        faults::afterNext(Call::Listen,
                          [this, step] {
                              voice_ = LoopbackPeer::dial(port_);
                              sound_ = sound_listener_.accept();
                              step();
                          },
                          {.skip = attempt});
    }

    void inEachPass(std::function<void()> step) {
        faults::afterNext(Call::Select,
                          [this, step] {
                              inEachPass(step);
                              step();
                          },
                          {.fd = STDIN_FILENO});
    }

    // Frames that the voice server sends ahead of those that came back, at most. Engines that are
    // slow to start answer in a burst, and nobody empties the pipe to the node during a pass.
    static constexpr int AHEAD = 60;

    // Runs with a frame from the voice server in each pass, numbered from 1, until the condition
    // holds; the node then hangs up, which ends the run.
    template <typename Condition>
    void runUntil(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        inEachPass([this, condition, end] {
            returned_ += voice_.arrived();
            if (sent_ < static_cast<int>(framesIn(returned_)) + AHEAD)
                voice_.send(textOf(audioFrame(FRAME_DATA, ++sent_)));
            results_ += node_.output();
            if (condition() || std::chrono::steady_clock::now() > end)
                node_.hangUp();
        });
        EXPECT_EQ(errorOf<ROSConnectorError>([this] { app_->run(); }),
                  "[ROSConnectorError] ROS connector read failed.");
        EXPECT_TRUE(condition());
    }

    static std::string textOf(const std::vector<char>& bytes) {
        return {bytes.begin(), bytes.end()};
    }
    static size_t framesIn(const std::string& bytes) { return bytes.size() / 324; }
    static std::vector<char> frameOf(const std::string& bytes, size_t index) {
        return bytesOf(bytes.substr(index * 324, 324));
    }

    StdioPipes node_;
    ErrorStreamCapture errors_;
    LogCapture log_;
    ScriptedEngines engines_;
    LoopbackListener sound_listener_;
    LoopbackPeer sound_;
    LoopbackPeer voice_;
    const uint16_t port_ = freePort();
    int sent_ = 0;          // frames of the voice server
    std::string returned_;  // bytes that came back to it
    std::string results_;   // bytes that the node received
    std::unique_ptr<Application> app_ = std::make_unique<Application>();
};

const std::string CONNECTED = "Connecting to Server ... [Connected]\n";

// finalize and destructor at every stage.

TEST_F(ApplicationTest, FinalizeBeforeInitializeReturnsTrue) {
    EXPECT_TRUE(app_->finalize());
    EXPECT_TRUE(app_->finalize());
}

TEST_F(ApplicationTest, AnUninitializedApplicationIsDestroyed) {
    app_.reset();
    EXPECT_TRUE(std::has_virtual_destructor_v<Application>);
    EXPECT_EQ(errors_.text() + log_.text(), "");
}

TEST_F(ApplicationTest, InitializeStartsAndConnectsNothing) {
    const auto before = openDescriptors();
    initialize();
    EXPECT_FALSE(hasChildren());
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ApplicationTest, FinalizeAfterInitializeReturnsTrueEveryTime) {
    initialize();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(app_->finalize());
}

TEST_F(ApplicationTest, FinalizeAfterARunStopsEnginesAndVoiceServerAndLeavesTheSoundClient) {
    initialize();
    whenConnected([] {});
    runUntil([] { return true; });
    EXPECT_TRUE(hasChildren());
    EXPECT_TRUE(app_->finalize());
    EXPECT_FALSE(hasChildren());
    EXPECT_TRUE(voice_.seesEnd());
    EXPECT_FALSE(sound_.hasEnded());
    EXPECT_TRUE(app_->finalize());
}

TEST_F(ApplicationTest, TheDestructorStopsEnginesAndClosesBothPeers) {
    initialize();
    whenConnected([] {});
    runUntil([] { return true; });
    app_.reset();
    EXPECT_FALSE(hasChildren());
    EXPECT_TRUE(voice_.seesEnd());
    EXPECT_TRUE(sound_.seesEnd());
}

// Launching.

TEST_F(ApplicationTest, AFailedVADLaunchIsFatalAndThrownOn) {
    initialize();
    faults::failNext(Call::Pipe, EMFILE);
    const std::string error = errorOf<AppControllerError>([this] { app_->run(); });
    EXPECT_EQ(error,
              withSystemText("[AppcontrollerError] VAD connector launch failed. "
                             "[AppConnectorError] Parent to child pipe create failed. error : ",
                             EMFILE));
    EXPECT_EQ(errors_.text(), "[FATAL] " + error + "\n");
}

TEST_F(ApplicationTest, AFailedMMSELaunchStopsTheVADEngine) {
    initialize();
    faults::failNext(Call::Pipe, EMFILE, {.skip = 2});
    EXPECT_THROW(app_->run(), AppControllerError);
    EXPECT_FALSE(hasChildren());
    EXPECT_EQ(errors_.text().substr(0, 58),
              "[FATAL] [AppcontrollerError] MMSE connector launch failed.");
}

// Connecting.

TEST_F(ApplicationTest, ConnectingIsAnnounced) {
    initialize();
    whenConnected([] {});
    runUntil([] { return true; });
    EXPECT_EQ(errors_.text(), CONNECTED + "[ROSConnectorError] ROS connector read failed.\n");
    EXPECT_EQ(faults::callsOf(Call::Sleep), 0);
}

TEST_F(ApplicationTest, AMissingSoundClientIsTriedAgainAfterFiveSecondsWithoutLimit) {
    initialize();
    for (int i = 0; i < 3; ++i) {
        faults::failNext(Call::Socket, EMFILE);
        faults::answerNext(Call::Sleep, 0);
    }
    whenConnected([] {});
    runUntil([] { return true; });
    EXPECT_EQ(
        errors_.text().substr(0, 3 * 25 + CONNECTED.size()),
        "Connecting to Server ... Connecting to Server ... Connecting to Server ... " + CONNECTED);
    EXPECT_EQ(faults::callsOf(Call::Sleep), 3);
    EXPECT_EQ(faults::secondsAsked(), 5u);
}

TEST_F(ApplicationTest, AMissingVoiceServerDisconnectsTheSoundClientBeforeTheNextAttempt) {
    initialize();
    faults::answerNext(Call::Select, 0);  // nobody comes within the five seconds
    bool ended = false;
    faults::answerNext(Call::Sleep, 0, {}, [&] { ended = sound_listener_.accept().seesEnd(); });
    whenConnected([] {}, 1);
    runUntil([] { return true; });
    EXPECT_TRUE(ended);
    EXPECT_EQ(faults::callsOf(Call::Sleep), 1);
    EXPECT_EQ(errors_.text().substr(0, 25 + CONNECTED.size()),
              "Connecting to Server ... " + CONNECTED);
}

// The road of a frame.

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

// How a run ends.

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
    EXPECT_EQ(faults::callsOf(Call::Accept), 1);
    EXPECT_EQ(faults::callsOf(Call::Sleep), 0);
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
        faults::failNext(Call::Write, EPIPE);
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
    faults::afterNext(Call::Select, [] { throw std::bad_alloc(); }, {.skip = 1});
    EXPECT_THROW(app_->run(), std::bad_alloc);
    EXPECT_EQ(errors_.text(), CONNECTED + "[FATAL] Unknown Exception\n");
}

TEST_F(ApplicationTest, ARuntimeErrorOfNoComponentIsFatalToo) {
    initialize();
    whenConnected([] {});
    faults::afterNext(Call::Select, [] { throw std::runtime_error("text"); }, {.skip = 1});
    EXPECT_EQ(errorOf<std::runtime_error>([this] { app_->run(); }), "text");
    EXPECT_EQ(errors_.text(), CONNECTED + "[FATAL] Unknown Exception\n");
}

}  // namespace
