// SPDX-License-Identifier: MIT
#include "VoiceServer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "loopback_peer.h"

namespace {

using faults::Call;

class VoiceServerTest : public testing::Test {
  protected:
    void connect() {
        faults::afterNext(Call::LISTEN, [this] { peer_ = LoopbackPeer::dial(port_); });
        ASSERT_EQ(server_.connect(port_), 0);
    }

    int read(uint32_t timeout) { return server_.read(buffer_, sizeof(buffer_), timeout); }

    template <typename Action>
    static std::string errorOfCall(Action action) {
        return errorOf<VoiceServerError>(action);
    }

    const uint16_t port_ = freePort();
    LoopbackPeer peer_;
    LogCapture log_;  // the system's causes, which other tests look at
    VoiceServer server_;
    char buffer_[324] = {};
};

static_assert(std::has_virtual_destructor_v<VoiceServer>);

TEST_F(VoiceServerTest, InitializeReturnsOne) {
    EXPECT_EQ(server_.initialize(), 1);
}

TEST_F(VoiceServerTest, ErrorTextCarriesTheTag) {
    EXPECT_STREQ(VoiceServerError("text").what(), "[VoiceServerError] text");
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, VoiceServerError>));
}

TEST_F(VoiceServerTest, ConnectAndDisconnectMoveTheState) {
    EXPECT_FALSE(server_.isConnect());
    connect();
    EXPECT_TRUE(server_.isConnect());
    EXPECT_EQ(server_.disconnect(), 0);
    EXPECT_FALSE(server_.isConnect());
    EXPECT_TRUE(peer_.seesEnd());
}

TEST_F(VoiceServerTest, DisconnectingAgainReturnsZero) {
    EXPECT_EQ(server_.disconnect(), 0);
    connect();
    server_.disconnect();
    EXPECT_EQ(server_.disconnect(), 0);
}

TEST_F(VoiceServerTest, WithoutAVoiceServerConnectThrowsAfterFiveSeconds) {
    faults::answerNext(Call::SELECT, 0);
    EXPECT_EQ(errorOfCall([this] { server_.connect(port_); }),
              "[VoiceServerError] Data connector connect failed. PORT:" + std::to_string(port_));
    EXPECT_EQ(faults::microsecondsAsked(), 5'000'000);
    EXPECT_FALSE(server_.isConnect());
}

TEST_F(VoiceServerTest, AnyOtherFailureToConnectThrowsTheSame) {
    faults::failNext(Call::BIND, EADDRINUSE);
    EXPECT_EQ(errorOfCall([this] { server_.connect(16001); }),
              "[VoiceServerError] Data connector connect failed. PORT:16001");
}

TEST_F(VoiceServerTest, AFailedConnectCanBeTriedAgain) {
    faults::answerNext(Call::SELECT, 0);
    EXPECT_THROW(server_.connect(port_), VoiceServerError);
    connect();
    EXPECT_TRUE(server_.isConnect());
}

TEST_F(VoiceServerTest, ASecondConnectClosesPeerAndListenerAndListensAgain) {
    const auto before = openDescriptors().size();
    connect();
    LoopbackPeer first = std::move(peer_);
    connect();
    EXPECT_TRUE(first.seesEnd());
    first.close();
    EXPECT_EQ(openDescriptors().size(), before + 3);  // peer, its connection, listener
}

TEST_F(VoiceServerTest, ASecondConnectThatCannotCloseTheFirstThrows) {
    connect();
    faults::failNext(Call::CLOSE, EIO);
    EXPECT_EQ(errorOfCall([this] { server_.connect(port_); }),
              "[VoiceServerError] Data connector disconnect failed.");
    EXPECT_TRUE(server_.isConnect());
}

TEST_F(VoiceServerTest, ASecondConnectThatFailsLeavesItDisconnected) {
    connect();
    faults::answerNext(Call::SELECT, 0);
    EXPECT_THROW(server_.connect(port_), VoiceServerError);
    EXPECT_FALSE(server_.isConnect());
}

TEST_F(VoiceServerTest, AFailedDisconnectThrowsAndKeepsTheState) {
    connect();
    faults::failNext(Call::CLOSE, EIO);
    EXPECT_EQ(errorOfCall([this] { server_.disconnect(); }),
              "[VoiceServerError] Data connector disconnect failed.");
    EXPECT_TRUE(server_.isConnect());
}

TEST_F(VoiceServerTest, BytesTravelBothWaysUnchanged) {
    connect();
    peer_.send(std::string("\0\xFF\r\n", 4));
    EXPECT_EQ(read(10000), 4);
    EXPECT_EQ(std::string(buffer_, 4), std::string("\0\xFF\r\n", 4));
    EXPECT_EQ(server_.write("hello", 5), 5);
    EXPECT_EQ(peer_.receive(5), "hello");
}

TEST_F(VoiceServerTest, ReadReturnsZeroOnTimeout) {
    connect();
    EXPECT_EQ(read(10), 0);
}

TEST_F(VoiceServerTest, ReadReturnsZeroWhenThePeerHasClosed) {
    connect();
    peer_.close();
    EXPECT_EQ(read(10000), 0);
    EXPECT_EQ(read(10000), 0);
    EXPECT_TRUE(server_.isConnect());
}

TEST_F(VoiceServerTest, ReadWithoutABufferThrowsBeforeTouchingTheSocket) {
    connect();
    faults::clear();
    EXPECT_EQ(errorOfCall([this] { server_.read(buffer_, 0, 100); }),
              "[VoiceServerError] Invalid argument.");
    EXPECT_EQ(errorOfCall([this] { server_.read(nullptr, 4, 100); }),
              "[VoiceServerError] Invalid argument.");
    EXPECT_EQ(faults::callsOf(Call::SELECT), 0);
}

TEST_F(VoiceServerTest, WriteWithoutBytesThrows) {
    connect();
    EXPECT_EQ(errorOfCall([this] { server_.write(buffer_, 0); }),
              "[VoiceServerError] Invalid argument.");
    EXPECT_EQ(errorOfCall([this] { server_.write(nullptr, 4); }),
              "[VoiceServerError] Invalid argument.");
}

TEST_F(VoiceServerTest, AnUnconnectedServerCannotReadOrWrite) {
    EXPECT_EQ(errorOfCall([this] { read(0); }), "[VoiceServerError] Data connector read failed.");
    EXPECT_EQ(errorOfCall([this] { server_.write("x", 1); }),
              "[VoiceServerError] Data connector write failed.");
}

TEST_F(VoiceServerTest, AFailedWaitOrReadThrows) {
    connect();
    faults::failNext(Call::SELECT, EINTR);
    EXPECT_EQ(errorOfCall([this] { read(0); }), "[VoiceServerError] Data connector read failed.");
    peer_.reset();
    EXPECT_EQ(errorOfCall([this] { read(10000); }),
              "[VoiceServerError] Data connector read failed.");
}

TEST_F(VoiceServerTest, AFailedWriteThrows) {
    connect();
    faults::failNext(Call::WRITE, EPIPE);
    EXPECT_EQ(errorOfCall([this] { server_.write("x", 1); }),
              "[VoiceServerError] Data connector write failed.");
}

TEST_F(VoiceServerTest, AShortWriteIsReturnedAndNotRetried) {
    connect();
    faults::shortenNext(Call::WRITE, 2);
    EXPECT_EQ(server_.write("hello", 5), 2);
    EXPECT_EQ(faults::callsOf(Call::WRITE), 1);
}

TEST_F(VoiceServerTest, TheDestructorClosesTheSockets) {
    {
        VoiceServer other;
        faults::afterNext(Call::LISTEN, [this] { peer_ = LoopbackPeer::dial(port_); });
        other.connect(port_);
    }
    EXPECT_TRUE(peer_.seesEnd());
}

}  // namespace
