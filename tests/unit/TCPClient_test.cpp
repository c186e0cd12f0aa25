// SPDX-License-Identifier: MIT
#include "TCPClient.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <type_traits>
#include <vector>

#include "descriptor_flood.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "loopback_peer.h"

namespace {

using faults::Call;

class TCPClientTest : public testing::Test {
  protected:
    TCPClientTest() { faults::clear(); }  // finding a port took some calls

    // Connects; peer_ is the other side.
    void connect() {
        ASSERT_EQ(client_.connect("127.0.0.1", listener_.port()), 0);
        peer_ = listener_.accept();
        ASSERT_TRUE(peer_.isOpen());
    }

    int send(const std::string& text) {
        return client_.send(text.data(), static_cast<uint32_t>(text.size()));
    }

    // What one receive returned, and what it put into received_.
    int receive(uint32_t timeout, size_t size = 64) {
        received_.assign(size, '-');
        const int count = client_.receive(received_.data(), static_cast<uint32_t>(size), timeout);
        received_.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return count;
    }

    // The next such call fails; so does the log's reading of the clock, with another errno.
    static void failNext(Call call, int error) {
        faults::failNext(call, error);
        faults::failNext(Call::GETTIMEOFDAY, EXDEV);
    }

    std::vector<std::string> logged() const { return log_.lines(); }
    static std::vector<std::string> line(const std::string& text) { return {text}; }

    LoopbackListener listener_;
    LoopbackPeer peer_;
    LogCapture log_;
    TCPClient client_;
    std::string received_;
};

static_assert(std::has_virtual_destructor_v<TCPClient>);

TEST_F(TCPClientTest, InitializeReturnsOne) {
    EXPECT_EQ(client_.initialize(), 1);
}

TEST_F(TCPClientTest, ANewClientIsNotConnected) {
    EXPECT_FALSE(client_.isConnect());
}

TEST_F(TCPClientTest, ConnectOpensABlockingSocketWithoutOptions) {
    connect();
    EXPECT_TRUE(client_.isConnect());
    EXPECT_EQ(faults::callsOf(Call::SETSOCKOPT), 0);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPClientTest, OnlyTheLow16BitsOfThePortCount) {
    EXPECT_EQ(client_.connect("127.0.0.1", 0x30000u + listener_.port()), 0);
}

TEST_F(TCPClientTest, BytesTravelBothWays) {
    connect();
    EXPECT_EQ(send("hello"), 5);
    EXPECT_EQ(peer_.receive(5), "hello");
    peer_.send("world");
    EXPECT_EQ(receive(10000), 5);
    EXPECT_EQ(received_, "world");
}

TEST_F(TCPClientTest, ReceiveReadsOnceAndAtMostTheSize) {
    connect();
    peer_.send("abcdef");
    EXPECT_EQ(receive(10000, 4), 4);
    EXPECT_EQ(received_, "abcd");
    EXPECT_EQ(faults::callsOf(Call::READ), 1);
}

TEST_F(TCPClientTest, AnIdleConnectionReceivesNothingAtOnceWithTimeoutZero) {
    connect();
    EXPECT_EQ(receive(0), 0);
    EXPECT_EQ(faults::microsecondsAsked(), 0);
    EXPECT_EQ(faults::callsOf(Call::READ), 0);
}

TEST_F(TCPClientTest, ATimeoutOf1500WaitsOneSecondAnd500Milliseconds) {
    connect();
    faults::answerNext(Call::SELECT, 0);
    EXPECT_EQ(receive(1500), 0);
    EXPECT_EQ(faults::microsecondsAsked(), 1'500'000);
}

TEST_F(TCPClientTest, ATimeoutIsNoError) {
    connect();
    EXPECT_EQ(receive(10), 0);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPClientTest, AClosedPeerReceivesAsZeroEveryTime) {
    connect();
    peer_.close();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(receive(10000), 0);
    EXPECT_TRUE(client_.isConnect());
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPClientTest, ASendIsOneWriteEvenWhenItIsShort) {
    connect();
    faults::shortenNext(Call::WRITE, 3);
    EXPECT_EQ(send("hello"), 3);
    EXPECT_EQ(faults::callsOf(Call::WRITE), 1);
}

TEST_F(TCPClientTest, SendingWhileDisconnectedIsMinusTwoWithADebugLine) {
    EXPECT_EQ(send("hello"), -2);
    EXPECT_EQ(logged(), line("DEBUG: Socket is aleady closed."));
}

TEST_F(TCPClientTest, SendLooksAtTheConnectionBeforeTheParameters) {
    EXPECT_EQ(client_.send(nullptr, 0), -2);
}

TEST_F(TCPClientTest, SendingNothingIsMinusOneWithADebugLine) {
    connect();
    EXPECT_EQ(send(""), -1);
    EXPECT_EQ(logged(), line("DEBUG: Invalid parameter."));
}

TEST_F(TCPClientTest, SendingFromNowhereIsMinusOneWithADebugLine) {
    connect();
    EXPECT_EQ(client_.send(nullptr, 4), -1);
    EXPECT_EQ(logged(), line("DEBUG: Invalid parameter."));
}

TEST_F(TCPClientTest, TransferMessagesAreInvisibleAtInfoLevel) {
    connect();
    LogCapture info(logINFO);
    send("");
    faults::failNext(Call::SELECT, EINTR);
    receive(0);
    client_.disconnect();
    send("hello");
    EXPECT_EQ(info.text(), "");
}

TEST_F(TCPClientTest, AFailedWriteIsMinusFourWithoutAMessage) {
    connect();
    failNext(Call::WRITE, EPIPE);
    EXPECT_EQ(send("hello"), -4);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPClientTest, ReceivingWhileDisconnectedIsMinusTwoWithoutAMessage) {
    EXPECT_EQ(receive(0), -2);
    EXPECT_EQ(client_.receive(nullptr, 0, 0), -2);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPClientTest, ReceivingNothingOrNowhereIsMinusOneWithoutAMessage) {
    connect();
    char byte = 0;
    EXPECT_EQ(client_.receive(&byte, 0, 0), -1);
    EXPECT_EQ(client_.receive(nullptr, 4, 0), -1);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPClientTest, AFailedWaitIsMinusSevenAndCalledATimeout) {
    connect();
    failNext(Call::SELECT, EINTR);
    EXPECT_EQ(receive(0), -7);
    EXPECT_EQ(logged(), line("DEBUG: TCP client receive timeout occured."));
}

TEST_F(TCPClientTest, ADescriptorBeyondTheReachOfSelectIsAFailedWait) {
    const DescriptorFlood flood;
    if (!flood.possible())
        GTEST_SKIP() << "this machine allows too few descriptors";
    connect();
    peer_.send("hello");
    EXPECT_EQ(receive(10000), -7);
    EXPECT_EQ(logged(), line("DEBUG: TCP client receive timeout occured."));
}

TEST_F(TCPClientTest, AFailedReadIsMinusFiveWithTheSystemText) {
    connect();
    peer_.send("hello");
    failNext(Call::READ, ECONNRESET);
    EXPECT_EQ(receive(10000), -5);
    EXPECT_EQ(logged(), line(withSystemText("DEBUG: Receive data error. error : ", ECONNRESET)));
}

TEST_F(TCPClientTest, AnAddressWithoutAListenerIsMinusTwoWithTheSystemText) {
    const auto before = openDescriptors();
    EXPECT_EQ(client_.connect("127.0.0.1", freePort()), -2);
    EXPECT_FALSE(client_.isConnect());
    EXPECT_EQ(logged(),
              line(withSystemText("WARNING: Socket connect error. error : ", ECONNREFUSED)));
    closeOpenedSince(before);
}

TEST_F(TCPClientTest, AFailedConnectKeepsTheErrorThoughTheLogReadsTheClock) {
    const auto before = openDescriptors();
    failNext(Call::CONNECT, ENETUNREACH);
    EXPECT_EQ(client_.connect("127.0.0.1", listener_.port()), -2);
    EXPECT_EQ(logged(),
              line(withSystemText("WARNING: Socket connect error. error : ", ENETUNREACH)));
    closeOpenedSince(before);
}

TEST_F(TCPClientTest, EachFailedConnectLeavesItsSocketOpen) {
    const auto before = openDescriptors();
    const uint16_t port = freePort();
    client_.connect("127.0.0.1", port);
    client_.connect("127.0.0.1", port);
    client_.disconnect();
    EXPECT_EQ(closeOpenedSince(before), 2u);
}

TEST_F(TCPClientTest, AFailedConnectCanBeTriedAgain) {
    const auto before = openDescriptors();
    faults::failNext(Call::CONNECT, ECONNREFUSED);
    client_.connect("127.0.0.1", listener_.port());
    closeOpenedSince(before);
    connect();
    EXPECT_TRUE(client_.isConnect());
}

TEST_F(TCPClientTest, AFailedSocketIsMinusTwoWithTheSystemText) {
    failNext(Call::SOCKET, EMFILE);
    EXPECT_EQ(client_.connect("127.0.0.1", listener_.port()), -2);
    EXPECT_FALSE(client_.isConnect());
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket open error. error : ", EMFILE)));
}

TEST_F(TCPClientTest, NamesAreNotLookedUp) {
    const auto before = openDescriptors();
    EXPECT_EQ(client_.connect("localhost", listener_.port()), -2);
    closeOpenedSince(before);
}

TEST_F(TCPClientTest, ASecondConnectClosesTheFirstConnection) {
    connect();
    LoopbackPeer first = std::move(peer_);
    connect();
    EXPECT_TRUE(first.seesEnd());
    EXPECT_EQ(send("hello"), 5);
    EXPECT_EQ(peer_.receive(5), "hello");
}

TEST_F(TCPClientTest, ASecondConnectThatCannotCloseTheFirstIsMinusThree) {
    connect();
    failNext(Call::CLOSE, EIO);
    EXPECT_EQ(client_.connect("127.0.0.1", listener_.port()), -3);
    EXPECT_TRUE(client_.isConnect());
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket close error. error : ", EIO)));
}

TEST_F(TCPClientTest, DisconnectingANewClientReturnsZero) {
    EXPECT_EQ(client_.disconnect(), 0);
    EXPECT_EQ(faults::callsOf(Call::CLOSE), 0);
}

TEST_F(TCPClientTest, DisconnectClosesTheConnection) {
    connect();
    EXPECT_EQ(client_.disconnect(), 0);
    EXPECT_FALSE(client_.isConnect());
    EXPECT_TRUE(peer_.seesEnd());
    EXPECT_EQ(client_.disconnect(), 0);
}

TEST_F(TCPClientTest, AFailedCloseIsMinusThreeAndKeepsTheConnection) {
    connect();
    failNext(Call::CLOSE, EIO);
    EXPECT_EQ(client_.disconnect(), -3);
    EXPECT_TRUE(client_.isConnect());
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket close error. error : ", EIO)));
}

TEST_F(TCPClientTest, TheDestructorDisconnects) {
    {
        TCPClient other;
        other.connect("127.0.0.1", listener_.port());
        peer_ = listener_.accept();
    }
    EXPECT_TRUE(peer_.seesEnd());
}

TEST_F(TCPClientTest, SaysNothingAboveTheReportingLevel) {
    const LogCapture quiet(logERROR);
    faults::failNext(Call::SOCKET, EMFILE);
    EXPECT_EQ(client_.connect("127.0.0.1", listener_.port()), -2);
    EXPECT_EQ(send("text"), -2);
    const auto before = openDescriptors();
    faults::failNext(Call::CONNECT, ECONNREFUSED);
    EXPECT_EQ(client_.connect("127.0.0.1", listener_.port()), -2);
    closeOpenedSince(before);
    connect();
    EXPECT_EQ(send(""), -1);
    faults::failNext(Call::SELECT, EBADF);
    EXPECT_EQ(receive(0), -7);
    peer_.send("text");
    faults::failNext(Call::READ, EIO);
    EXPECT_EQ(receive(10000), -5);
    faults::failNext(Call::CLOSE, EIO);
    EXPECT_EQ(client_.disconnect(), -3);
    EXPECT_EQ(quiet.text(), "");
    EXPECT_TRUE(logged().empty());
}

}  // namespace
