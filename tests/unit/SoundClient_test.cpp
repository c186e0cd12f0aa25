// SPDX-License-Identifier: MIT
#include "SoundClient.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "loopback_peer.h"
#include "play_sound.h"
#include "wait_until.h"

namespace {

using faults::Call;

class SoundClientTest : public HermeticTest {
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

TEST_F(SoundClientTest, InitializeReturnsOne) {
    EXPECT_EQ(client_.initialize(), 1);
    EXPECT_TRUE(std::has_virtual_destructor_v<SoundClient>);
}

TEST_F(SoundClientTest, ErrorTextCarriesTheTag) {
    EXPECT_STREQ(SoundClientError("text").what(), "[SoundClientError] text");
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, SoundClientError>));
}

TEST_F(SoundClientTest, ConnectAndDisconnectMoveTheState) {
    EXPECT_FALSE(client_.isConnect());
    connect();
    EXPECT_TRUE(client_.isConnect());
    EXPECT_EQ(client_.disconnect(), 0);
    EXPECT_FALSE(client_.isConnect());
    EXPECT_TRUE(peer_.seesEnd());
}

TEST_F(SoundClientTest, ConnectWithoutAListenerNamesAddressAndPort) {
    const auto before = openDescriptors();
    const uint16_t port = freePort();
    EXPECT_EQ(errorOfCall([&] { client_.connect("127.0.0.1", port); }),
              "[SoundClientError] Sound client connect failed. IP:127.0.0.1 PORT:" +
                  std::to_string(port));
    EXPECT_FALSE(client_.isConnect());
    closeOpenedSince(before);
}

TEST_F(SoundClientTest, ASecondConnectClosesTheFirst) {
    connect();
    LoopbackPeer first = std::move(peer_);
    connect();
    EXPECT_TRUE(first.seesEnd());
    EXPECT_TRUE(client_.isConnect());
}

TEST_F(SoundClientTest, ASecondConnectPassesOnTheErrorOfTheDisconnect) {
    connect();
    faults::failNext(Call::Close, EIO);
    EXPECT_EQ(errorOfCall([this] { client_.connect("127.0.0.1", listener_.port()); }),
              "[SoundClientError] Sound client disconnect failed.");
}

TEST_F(SoundClientTest, ASecondConnectResetsTheParser) {
    connect();
    switchEpdOff();
    connect();
    EXPECT_TRUE(client_.getEpdState());
}

TEST_F(SoundClientTest, AFailedDisconnectThrowsAndKeepsTheState) {
    connect();
    faults::failNext(Call::Close, EIO);
    EXPECT_EQ(errorOfCall([this] { client_.disconnect(); }),
              "[SoundClientError] Sound client disconnect failed.");
    EXPECT_TRUE(client_.isConnect());
}

TEST_F(SoundClientTest, AFailedDisconnectResetsTheParserFirst) {
    connect();
    switchEpdOff();
    faults::failNext(Call::Close, EIO);
    EXPECT_THROW(client_.disconnect(), SoundClientError);
    EXPECT_TRUE(client_.getEpdState());
}

TEST_F(SoundClientTest, DisconnectSwitchesEpdOn) {
    connect();
    switchEpdOff();
    client_.disconnect();
    EXPECT_TRUE(client_.getEpdState());
}

// Kept, the partial block would swallow the command as its payload.
TEST_F(SoundClientTest, DisconnectForgetsAPartialBlock) {
    connect();
    peer_.send("DATA 20\n\nab");
    processUntil([] { return faults::callsOf(Call::Read) == 1; });
    client_.disconnect();
    connect();
    switchEpdOff();
}

TEST_F(SoundClientTest, DisconnectingAnUnconnectedLinkReturnsZeroWithEpdOn) {
    EXPECT_EQ(client_.disconnect(), 0);
    EXPECT_TRUE(client_.getEpdState());
    EXPECT_EQ(faults::callsOf(Call::Close), 0);
}

TEST_F(SoundClientTest, InitializeSwitchesEpdOn) {
    connect();
    switchEpdOff();
    client_.initialize();
    EXPECT_TRUE(client_.getEpdState());
}

TEST_F(SoundClientTest, TheDestructorClosesTheSocket) {
    {
        SoundClient other;
        other.connect("127.0.0.1", listener_.port());
        peer_ = listener_.accept();
    }
    EXPECT_TRUE(peer_.seesEnd());
}

TEST_F(SoundClientTest, BytesTravelBothWays) {
    connect();
    EXPECT_EQ(client_.write("hello", 5), 5);
    EXPECT_EQ(peer_.receive(5), "hello");
    peer_.send("world");
    char buffer[16] = {};
    EXPECT_EQ(client_.read(buffer, sizeof(buffer), 10000), 5);
    EXPECT_STREQ(buffer, "world");
}

TEST_F(SoundClientTest, ReadReturnsZeroOnTimeout) {
    connect();
    char byte = 0;
    EXPECT_EQ(client_.read(&byte, 1, 10), 0);
}

TEST_F(SoundClientTest, ReadAndWriteOfNothingAreInvalid) {
    char byte = 0;
    const std::string invalid = "[SoundClientError] Invalid argument.";
    EXPECT_EQ(errorOfCall([&] { client_.read(&byte, 0, 0); }), invalid);
    EXPECT_EQ(errorOfCall([&] { client_.read(nullptr, 1, 0); }), invalid);
    EXPECT_EQ(errorOfCall([&] { client_.write(&byte, 0); }), invalid);
    EXPECT_EQ(errorOfCall([&] { client_.write(nullptr, 1); }), invalid);
}

TEST_F(SoundClientTest, FailedTransfersThrow) {
    char byte = 0;
    EXPECT_EQ(errorOfCall([&] { client_.read(&byte, 1, 0); }),
              "[SoundClientError] Sound client read failed.");
    EXPECT_EQ(errorOfCall([&] { client_.write(&byte, 1); }),
              "[SoundClientError] Sound client write failed.");
}

TEST_F(SoundClientTest, ProcessOfASilentPeerPollsAndReadsNothing) {
    connect();
    client_.process();
    EXPECT_EQ(faults::microsecondsAsked(), 0);
    EXPECT_EQ(faults::callsOf(Call::Read), 0);
}

TEST_F(SoundClientTest, ProcessHasTheBytesParsed) {
    connect();
    switchEpdOff();
    peer_.send("EPD_ON\r\n\r\n");
    processUntil([this] { return client_.getEpdState(); });
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{"INFO: receive sound client packet : epd_off.",
                                        "INFO: receive sound client packet : epd_on."}));
}

TEST_F(SoundClientTest, OneReadTakesAtMost1024Bytes) {
    connect();
    // The keyword's last letter is byte 1,025.
    peer_.send(std::string(1018, 'x') + "EPD_OFF\r\n\r\n");
    processUntil([] { return faults::callsOf(Call::Read) > 0; });
    EXPECT_TRUE(client_.getEpdState());
    processUntil([this] { return !client_.getEpdState(); });
}

TEST_F(SoundClientTest, OnlyTheBytesReadAreParsed) {
    connect();
    faults::shortenNext(Call::Read, 4);
    peer_.send("EPD_OFF\r\n\r\n");
    processUntil([] { return faults::callsOf(Call::Read) == 1; });
    EXPECT_TRUE(client_.getEpdState());
    processUntil([this] { return !client_.getEpdState(); });
}

TEST_F(SoundClientTest, APeerThatHasClosedIsNotNoticed) {
    connect();
    peer_.close();
    processUntil([] { return faults::callsOf(Call::Read) >= 3; });
    EXPECT_TRUE(client_.isConnect());
    EXPECT_TRUE(client_.getEpdState());
}

TEST_F(SoundClientTest, ProcessOfAnUnconnectedLinkIsAnUnknownException) {
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] Unknown Exception.");
}

TEST_F(SoundClientTest, AResetIsAnUnknownExceptionAndNotAFailedRead) {
    connect();
    peer_.reset();
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] Unknown Exception.");
}

TEST_F(SoundClientTest, AFailedWaitIsAnUnknownException) {
    connect();
    faults::failNext(Call::Select, EINTR);
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] Unknown Exception.");
}

// A DATA header cut inside its digits takes the parser out of range.
TEST_F(SoundClientTest, AnErrorOfTheParserIsAnUnknownException) {
    connect();
    peer_.send("DATA 1");
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] Unknown Exception.");
}

TEST_F(SoundClientTest, ASoundClientProcessorErrorKeepsItsText) {
    connect();
    faults::afterNext(Call::Select, [] { throw SoundClientProcessorError("text"); });
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] text");
}

// The play-sound state.

TEST_F(SoundClientTest, TheStateIsSentWhenItChangesOnly) {
    connect();
    client_.setPlaySoundState(false);
    client_.setPlaySoundState(true);
    client_.setPlaySoundState(true);
    client_.setPlaySoundState(false);
    client_.setPlaySoundState(false);
    EXPECT_EQ(peer_.receive(15), "epdoff\n\nepdon\n\n");
    EXPECT_EQ(faults::callsOf(Call::Write), 2);
}

TEST_F(SoundClientTest, EachCommandIsLoggedAtDebugLevel) {
    connect();
    client_.setPlaySoundState(true);
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{"DEBUG: send epd state to sound client. :epdoff", "", ""}));
    log_.forget();
    client_.setPlaySoundState(false);
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{"DEBUG: send epd state to sound client. :epdon", "", ""}));
}

TEST_F(SoundClientTest, AnUnsentCommandIsNotSentAgain) {
    connect();
    faults::failNext(Call::Write, EPIPE);
    EXPECT_EQ(errorOfCall([this] { client_.setPlaySoundState(true); }),
              "[SoundClientError] Sound client write failed.");
    client_.setPlaySoundState(true);
    EXPECT_EQ(faults::callsOf(Call::Write), 1);
}

TEST_F(SoundClientTest, AnUnsentCommandIsLoggedAllTheSame) {
    EXPECT_THROW(client_.setPlaySoundState(true), SoundClientError);
    EXPECT_EQ(log_.lines().at(0), "DEBUG: send epd state to sound client. :epdoff");
}

TEST_F(SoundClientTest, ANewConnectionIsNotToldTheState) {
    connect();
    client_.setPlaySoundState(true);
    client_.disconnect();
    client_.initialize();
    connect();
    client_.setPlaySoundState(true);
    client_.setPlaySoundState(false);
    EXPECT_EQ(peer_.receive(7), "epdon\n\n");
}

TEST_F(SoundClientTest, AllLinksShareTheStateLastSent) {
    connect();
    client_.setPlaySoundState(true);
    SoundClient other;
    EXPECT_NO_THROW(other.setPlaySoundState(true));  // not connected, but nothing is to be sent
    EXPECT_THROW(other.setPlaySoundState(false), SoundClientError);
}

// In a process of its own, because the state is that of a process that has just started.
TEST(SoundClientAtProcessStart, TheFirstFalseSendsNothingAndTheFirstTrueDoes) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto firstCalls = [] {
        SoundClient client;
        client.setPlaySoundState(false);  // would throw: there is no connection
        const std::string error =
            errorOf<SoundClientError>([&] { client.setPlaySoundState(true); });
        _exit(error == "[SoundClientError] Sound client write failed." ? 7 : 8);
    };
    EXPECT_EXIT(firstCalls(), testing::ExitedWithCode(7), "");
}

}  // namespace
