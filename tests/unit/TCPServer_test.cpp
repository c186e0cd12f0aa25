// SPDX-License-Identifier: MIT
#include "TCPServer.h"

#include <gtest/gtest.h>
#include <unistd.h>

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
#include "scoped_descriptor.h"

namespace {

using faults::Call;

class TCPServerTest : public HermeticTest {
  protected:
    TCPServerTest() { faults::clear(); }  // finding a port took some calls

    // The peer dials as soon as the server listens, so that connect need not wait.
    void dialWhenListening(const char* address = "127.0.0.1") {
        faults::afterNext(Call::Listen,
                          [this, address] { peer_ = LoopbackPeer::dial(port_, address); });
    }

    void connect() {
        dialWhenListening();
        ASSERT_EQ(server_.connect(port_), 0);
    }

    int send(const std::string& text) {
        return server_.send(text.data(), static_cast<uint32_t>(text.size()));
    }

    // What one receive returned, and what it put into received_.
    int receive(uint32_t timeout, size_t size = 64) {
        received_.assign(size, '-');
        const int count = server_.receive(received_.data(), static_cast<uint32_t>(size), timeout);
        received_.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return count;
    }

    // The next such call fails; so does the log's reading of the clock, with another errno.
    static void failNext(Call call, int error, int skip = 0) {
        faults::failNext(call, error, {.skip = skip});
        faults::failNext(Call::Gettimeofday, EXDEV);
    }

    std::vector<std::string> logged() const { return log_.lines(); }
    static std::vector<std::string> line(const std::string& text) { return {text}; }

    const uint16_t port_ = freePort();
    LoopbackPeer peer_;
    LogCapture log_;
    TCPServer server_;
    std::string received_;
};

TEST_F(TCPServerTest, InitializeReturnsOne) {
    EXPECT_EQ(server_.initialize(), 1);
    EXPECT_TRUE(std::has_virtual_destructor_v<TCPServer>);
}

TEST_F(TCPServerTest, ANewServerIsNotConnected) {
    EXPECT_FALSE(server_.isConnect());
    EXPECT_EQ(server_.disconnect(), 0);
    EXPECT_EQ(faults::callsOf(Call::Close), 0);
}

TEST_F(TCPServerTest, ConnectAcceptsOnePeer) {
    connect();
    EXPECT_TRUE(server_.isConnect());
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPServerTest, ItListensOnAllAddresses) {
    dialWhenListening("127.0.0.2");
    EXPECT_EQ(server_.connect(port_), 0);
}

TEST_F(TCPServerTest, OnlyTheLow16BitsOfThePortCount) {
    dialWhenListening();
    EXPECT_EQ(server_.connect(0x30000u + port_), 0);
}

TEST_F(TCPServerTest, TheListeningSocketStaysOpenBesideTheConnection) {
    const auto before = openDescriptors().size();
    connect();
    EXPECT_EQ(openDescriptors().size(), before + 3);  // peer, its connection, listener
}

TEST_F(TCPServerTest, ASecondPeerIsNeverServed) {
    connect();
    LoopbackPeer second = LoopbackPeer::dial(port_);
    second.send("from the second");
    EXPECT_EQ(receive(20), 0);
    send("hello");
    EXPECT_EQ(peer_.receive(5), "hello");
    EXPECT_EQ(second.arrived(), "");
    EXPECT_EQ(faults::callsOf(Call::Accept), 1);
    EXPECT_EQ(faults::backlogAsked(), 1);
}

TEST_F(TCPServerTest, WithoutAPeerConnectGivesUpAfterFiveSeconds) {
    faults::answerNext(Call::Select, 0);
    EXPECT_EQ(server_.connect(port_), -7);
    EXPECT_EQ(faults::microsecondsAsked(), 5'000'000);
    EXPECT_FALSE(server_.isConnect());
    EXPECT_EQ(logged(), line("WARNING: Socket accept timeout occured."));
}

TEST_F(TCPServerTest, AFailedWaitForAPeerReadsAsATimeout) {
    failNext(Call::Select, EINTR);
    EXPECT_EQ(server_.connect(port_), -7);
    EXPECT_EQ(logged(), line("WARNING: Socket accept timeout occured."));
}

TEST_F(TCPServerTest, AFailedAttemptLeavesTheListenerOpenForTheNextToClose) {
    const auto before = openDescriptors().size();
    for (int i = 0; i < 3; ++i) {
        faults::answerNext(Call::Select, 0);
        server_.connect(port_);
        EXPECT_EQ(openDescriptors().size(), before + 1);
    }
}

TEST_F(TCPServerTest, AfterATimeoutTheSamePortIsListenedOnAgain) {
    faults::answerNext(Call::Select, 0);
    server_.connect(port_);
    connect();
    EXPECT_TRUE(server_.isConnect());
}

TEST_F(TCPServerTest, AfterAConnectionTheSamePortIsListenedOnAgain) {
    connect();
    server_.disconnect();
    connect();
    EXPECT_TRUE(server_.isConnect());
}

// The test for an open connection is the wrong way round: only an unconnected server cleans up.
TEST_F(TCPServerTest, AConnectedServerClosesNothingAndMeetsItsOwnListener) {
    const auto before = openDescriptors();
    connect();
    EXPECT_EQ(server_.connect(port_), -2);
    EXPECT_EQ(faults::callsOf(Call::Close), 0);
    EXPECT_TRUE(server_.isConnect());
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket bind failed. error : ", EADDRINUSE)));
    server_.disconnect();
    peer_.close();
    EXPECT_EQ(closeOpenedSince(before), 1u);  // the first listener is forgotten
}

TEST_F(TCPServerTest, ACleanUpThatFailsIsMinusThree) {
    faults::answerNext(Call::Select, 0);
    server_.connect(port_);
    log_.forget();
    failNext(Call::Close, EIO);
    EXPECT_EQ(server_.connect(port_), -3);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket close failed. error : ", EIO)));
}

TEST_F(TCPServerTest, AFailedSocketIsMinusTwoWithTheSystemText) {
    failNext(Call::Socket, EMFILE);
    EXPECT_EQ(server_.connect(port_), -2);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket open failed. error : ", EMFILE)));
}

TEST_F(TCPServerTest, AFailedSocketOptionIsIgnored) {
    faults::failNext(Call::Setsockopt, EINVAL);
    connect();
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPServerTest, AFailedBindIsMinusTwoWithTheSystemText) {
    failNext(Call::Bind, EACCES);
    EXPECT_EQ(server_.connect(port_), -2);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket bind failed. error : ", EACCES)));
}

TEST_F(TCPServerTest, AFailedListenIsMinusTwoWithTheSystemText) {
    failNext(Call::Listen, EADDRINUSE);
    EXPECT_EQ(server_.connect(port_), -2);
    EXPECT_EQ(logged(),
              line(withSystemText("WARNING: Socket listen failed. error : ", EADDRINUSE)));
}

TEST_F(TCPServerTest, AFailedAcceptIsMinusTwoWithoutAMessage) {
    dialWhenListening();
    failNext(Call::Accept, ECONNABORTED);
    EXPECT_EQ(server_.connect(port_), -2);
    EXPECT_FALSE(server_.isConnect());
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPServerTest, AListenerBeyondTheReachOfSelectIsAFailedWait) {
    const DescriptorFlood flood;
    if (!flood.possible())
        GTEST_SKIP() << "this machine allows too few descriptors";
    dialWhenListening();
    EXPECT_EQ(server_.connect(port_), -7);
    EXPECT_EQ(logged(), line("WARNING: Socket accept timeout occured."));
}

TEST_F(TCPServerTest, DisconnectClosesPeerAndListener) {
    const auto before = openDescriptors().size();
    connect();
    EXPECT_EQ(server_.disconnect(), 0);
    EXPECT_FALSE(server_.isConnect());
    EXPECT_TRUE(peer_.seesEnd());
    EXPECT_EQ(openDescriptors().size(), before + 1);
}

TEST_F(TCPServerTest, DisconnectingTwiceReturnsZeroBothTimes) {
    connect();
    EXPECT_EQ(server_.disconnect(), 0);
    EXPECT_EQ(server_.disconnect(), 0);
    EXPECT_EQ(faults::callsOf(Call::Close), 2);
}

TEST_F(TCPServerTest, APeerThatCannotBeClosedIsMinusThreeAndNothingChanges) {
    connect();
    failNext(Call::Close, EIO);
    EXPECT_EQ(server_.disconnect(), -3);
    EXPECT_TRUE(server_.isConnect());
    EXPECT_EQ(faults::callsOf(Call::Close), 1);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket close failed. error : ", EIO)));
}

TEST_F(TCPServerTest, AListenerThatCannotBeClosedIsMinusThreeWithThePeerGone) {
    connect();
    failNext(Call::Close, EIO, 1);
    EXPECT_EQ(server_.disconnect(), -3);
    EXPECT_TRUE(server_.isConnect());
    EXPECT_TRUE(peer_.seesEnd());
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket close failed. error : ", EIO)));
}

// The test for a descriptor is "greater than zero".
TEST_F(TCPServerTest, DescriptorZeroIsNeverClosed) {
    dialWhenListening();
    faults::answerNext(Call::Accept, 0);
    EXPECT_EQ(server_.connect(port_), 0);
    EXPECT_EQ(server_.disconnect(), 0);
    EXPECT_EQ(faults::callsOf(Call::Close), 1);  // the listener
    EXPECT_TRUE(openDescriptors().count(STDIN_FILENO));
}

TEST_F(TCPServerTest, TheDestructorDisconnects) {
    {
        TCPServer other;
        dialWhenListening();
        other.connect(port_);
    }
    EXPECT_TRUE(peer_.seesEnd());
}

TEST_F(TCPServerTest, BytesTravelBothWays) {
    connect();
    EXPECT_EQ(send("hello"), 5);
    EXPECT_EQ(peer_.receive(5), "hello");
    peer_.send("world");
    EXPECT_EQ(receive(10000), 5);
    EXPECT_EQ(received_, "world");
}

TEST_F(TCPServerTest, ReceiveReadsOnceAndAtMostTheSize) {
    connect();
    peer_.send("abcdef");
    EXPECT_EQ(receive(10000, 4), 4);
    EXPECT_EQ(received_, "abcd");
}

TEST_F(TCPServerTest, ATimeoutIsNoError) {
    connect();
    EXPECT_EQ(receive(10), 0);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPServerTest, ATimeoutOf1500WaitsOneSecondAnd500Milliseconds) {
    connect();
    faults::answerNext(Call::Select, 0);
    EXPECT_EQ(receive(1500), 0);
    EXPECT_EQ(faults::microsecondsAsked(), 1'500'000);
}

TEST_F(TCPServerTest, AClosedPeerReceivesAsZeroEveryTime) {
    connect();
    peer_.close();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(receive(10000), 0);
    EXPECT_TRUE(server_.isConnect());
}

TEST_F(TCPServerTest, ASendIsOneWriteEvenWhenItIsShort) {
    connect();
    faults::shortenNext(Call::Write, 3);
    EXPECT_EQ(send("hello"), 3);
    EXPECT_EQ(faults::callsOf(Call::Write), 1);
}

TEST_F(TCPServerTest, TransfersWhileDisconnectedAreMinusTwoWithoutAMessage) {
    EXPECT_EQ(send("hello"), -2);
    EXPECT_EQ(receive(0), -2);
    EXPECT_EQ(server_.send(nullptr, 0), -2);
    EXPECT_EQ(server_.receive(nullptr, 0, 0), -2);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPServerTest, TransfersOfNothingAreMinusOneWithoutAMessage) {
    connect();
    char byte = 0;
    EXPECT_EQ(server_.send(&byte, 0), -1);
    EXPECT_EQ(server_.send(nullptr, 4), -1);
    EXPECT_EQ(server_.receive(&byte, 0, 0), -1);
    EXPECT_EQ(server_.receive(nullptr, 4, 0), -1);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPServerTest, AFailedWriteIsMinusFourWithAWarning) {
    connect();
    failNext(Call::Write, EPIPE);
    EXPECT_EQ(send("hello"), -4);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket write failed. error : ", EPIPE)));
}

TEST_F(TCPServerTest, AFailedWaitIsMinusSevenAndCalledATimeout) {
    connect();
    failNext(Call::Select, EINTR);
    EXPECT_EQ(receive(0), -7);
    EXPECT_EQ(logged(), line("DEBUG: TCP server receive timeout occured."));
}

TEST_F(TCPServerTest, AFailedReadIsMinusFiveWithTheSystemText) {
    connect();
    peer_.send("hello");
    failNext(Call::Read, ECONNRESET);
    EXPECT_EQ(receive(10000), -5);
    EXPECT_EQ(logged(), line(withSystemText("DEBUG: Receive data failed. error : ", ECONNRESET)));
}

TEST_F(TCPServerTest, SaysNothingAboveTheReportingLevel) {
    const LogCapture quiet(logERROR);
    faults::failNext(Call::Socket, EMFILE);
    EXPECT_EQ(server_.connect(port_), -2);
    faults::answerNext(Call::Select, 0);
    EXPECT_EQ(server_.connect(port_), -7);
    connect();
    faults::failNext(Call::Write, EIO);
    EXPECT_EQ(send("text"), -4);
    faults::failNext(Call::Select, EBADF);
    EXPECT_EQ(receive(0), -7);
    peer_.send("text");
    faults::failNext(Call::Read, EIO);
    EXPECT_EQ(receive(10000), -5);
    faults::failNext(Call::Close, EIO);
    EXPECT_EQ(server_.disconnect(), -3);
    EXPECT_EQ(quiet.text(), "");
    EXPECT_TRUE(logged().empty());
}

}  // namespace
