// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_APPLICATION_FIXTURE_H
#define TOLVANEV_TESTS_APPLICATION_FIXTURE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Application.h"
#include "audio_frames.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "loopback_peer.h"
#include "play_sound.h"
#include "scripted_engines.h"
#include "stdio_pipes.h"

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

inline const std::string CONNECTED = "Connecting to Server ... [Connected]\n";

// The whole bridge in this process, between a voice server, a sound client, a ROS node and two
// engines of the test. Everything that the peers do while run() runs is hung onto calls that it
// makes: they connect when it listens, and act when it polls standard input, once in each pass.
class ApplicationTest : public testing::Test {
  protected:
    ApplicationTest() { forgetPlaySound(); }
    ~ApplicationTest() override { forgetPlaySound(); }

    void initialize() {
        EXPECT_TRUE(app_->initialize(SCRIPTED_ENGINE, engines_.mmse.settings(),
                                     engines_.vad.settings(), "127.0.0.1", sound_listener_.port(),
                                     port_));
    }

    // The peers connect; then they do this, before the first pass.
    void whenConnected(const std::function<void()>& step, int attempt = 0) {
        faults::afterNext(faults::Call::LISTEN,
                          [this, step] {
                              voice_ = LoopbackPeer::dial(port_);
                              sound_ = sound_listener_.accept();
                              step();
                          },
                          {.skip = attempt});
    }

    void inEachPass(const std::function<void()>& step) {
        faults::afterNext(faults::Call::SELECT,
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

#endif
