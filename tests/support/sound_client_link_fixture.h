// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_SOUND_CLIENT_LINK_FIXTURE_H
#define TOLVANEV_TESTS_SOUND_CLIENT_LINK_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "SoundClient.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "loopback_peer.h"
#include "play_sound.h"
#include "wait_until.h"

// A link and the sound client of the test that it connects to; no sound is playing at first.
class SoundClientTest : public testing::Test {
  protected:
    SoundClientTest() {
        forgetPlaySound();
        log_.forget();
        client_.initialize();
        faults::clear();  // finding a port took some calls
    }
    ~SoundClientTest() override { forgetPlaySound(); }

    void connect() {
        ASSERT_EQ(client_.connect("127.0.0.1", listener_.port()), 0);
        peer_ = listener_.accept();
        ASSERT_TRUE(peer_.isOpen());
    }

    // Polls until the condition holds: the link does not wait, so bytes of the peer may be under
    // way.
    template <typename Condition>
    void processUntil(Condition condition) {
        EXPECT_TRUE(waitUntil([&] {
            client_.process();
            return condition();
        }));
    }

    // The peer switches EPD off; returns when the link knows.
    void switchEpdOff() {
        peer_.send("EPD_OFF\r\n\r\n");
        processUntil([this] { return !client_.getEpdState(); });
    }

    template <typename Action>
    static std::string errorOfCall(Action action) {
        return errorOf<SoundClientError>(action);
    }
    // The error of the first poll that has one.
    std::string errorOfProcess() {
        return errorOfCall([this] { processUntil([] { return false; }); });
    }

    LoopbackListener listener_;
    LoopbackPeer peer_;
    LogCapture log_;
    SoundClient client_;
};

#endif
