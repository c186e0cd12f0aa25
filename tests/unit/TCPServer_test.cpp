// SPDX-License-Identifier: MIT
#include "TCPServer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <type_traits>

#include "descriptor_flood.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "loopback_peer.h"
#include "tcp_server_fixture.h"

namespace {

using faults::Call;

static_assert(std::has_virtual_destructor_v<TCPServer>);

TEST_F(TCPServerTest, InitializeReturnsOne) {
    EXPECT_EQ(server_.initialize(), 1);
}

TEST_F(TCPServerTest, ANewServerIsNotConnected) {
    EXPECT_FALSE(server_.isConnect());
    EXPECT_EQ(server_.disconnect(), 0);
    EXPECT_EQ(faults::callsOf(Call::CLOSE), 0);
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
    EXPECT_EQ(faults::callsOf(Call::ACCEPT), 1);
    EXPECT_EQ(faults::backlogAsked(), 1);
}

TEST_F(TCPServerTest, WithoutAPeerConnectGivesUpAfterFiveSeconds) {
    faults::answerNext(Call::SELECT, 0);
    EXPECT_EQ(server_.connect(port_), -7);
    EXPECT_EQ(faults::microsecondsAsked(), 5'000'000);
    EXPECT_FALSE(server_.isConnect());
    EXPECT_EQ(logged(), line("WARNING: Socket accept timeout occured."));
}

TEST_F(TCPServerTest, AFailedWaitForAPeerReadsAsATimeout) {
    failNext(Call::SELECT, EINTR);
    EXPECT_EQ(server_.connect(port_), -7);
    EXPECT_EQ(logged(), line("WARNING: Socket accept timeout occured."));
}

TEST_F(TCPServerTest, AFailedAttemptLeavesTheListenerOpenForTheNextToClose) {
    const auto before = openDescriptors().size();
    for (int i = 0; i < 3; ++i) {
        faults::answerNext(Call::SELECT, 0);
        server_.connect(port_);
        EXPECT_EQ(openDescriptors().size(), before + 1);
    }
}

TEST_F(TCPServerTest, AfterATimeoutTheSamePortIsListenedOnAgain) {
    faults::answerNext(Call::SELECT, 0);
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
    EXPECT_EQ(faults::callsOf(Call::CLOSE), 0);
    EXPECT_TRUE(server_.isConnect());
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket bind failed. error : ", EADDRINUSE)));
    server_.disconnect();
    peer_.close();
    EXPECT_EQ(closeOpenedSince(before), 1u);  // the first listener is forgotten
}

TEST_F(TCPServerTest, ACleanUpThatFailsIsMinusThree) {
    faults::answerNext(Call::SELECT, 0);
    server_.connect(port_);
    log_.forget();
    failNext(Call::CLOSE, EIO);
    EXPECT_EQ(server_.connect(port_), -3);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket close failed. error : ", EIO)));
}

TEST_F(TCPServerTest, AFailedSocketIsMinusTwoWithTheSystemText) {
    failNext(Call::SOCKET, EMFILE);
    EXPECT_EQ(server_.connect(port_), -2);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket open failed. error : ", EMFILE)));
}

TEST_F(TCPServerTest, AFailedSocketOptionIsIgnored) {
    faults::failNext(Call::SETSOCKOPT, EINVAL);
    connect();
    EXPECT_EQ(log_.text(), "");
}

TEST_F(TCPServerTest, AFailedBindIsMinusTwoWithTheSystemText) {
    failNext(Call::BIND, EACCES);
    EXPECT_EQ(server_.connect(port_), -2);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket bind failed. error : ", EACCES)));
}

TEST_F(TCPServerTest, AFailedListenIsMinusTwoWithTheSystemText) {
    failNext(Call::LISTEN, EADDRINUSE);
    EXPECT_EQ(server_.connect(port_), -2);
    EXPECT_EQ(logged(),
              line(withSystemText("WARNING: Socket listen failed. error : ", EADDRINUSE)));
}

TEST_F(TCPServerTest, AFailedAcceptIsMinusTwoWithoutAMessage) {
    dialWhenListening();
    failNext(Call::ACCEPT, ECONNABORTED);
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
    EXPECT_EQ(faults::callsOf(Call::CLOSE), 2);
}

TEST_F(TCPServerTest, APeerThatCannotBeClosedIsMinusThreeAndNothingChanges) {
    connect();
    failNext(Call::CLOSE, EIO);
    EXPECT_EQ(server_.disconnect(), -3);
    EXPECT_TRUE(server_.isConnect());
    EXPECT_EQ(faults::callsOf(Call::CLOSE), 1);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket close failed. error : ", EIO)));
}

TEST_F(TCPServerTest, AListenerThatCannotBeClosedIsMinusThreeWithThePeerGone) {
    connect();
    failNext(Call::CLOSE, EIO, 1);
    EXPECT_EQ(server_.disconnect(), -3);
    EXPECT_TRUE(server_.isConnect());
    EXPECT_TRUE(peer_.seesEnd());
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket close failed. error : ", EIO)));
}

// The test for a descriptor is "greater than zero".
TEST_F(TCPServerTest, DescriptorZeroIsNeverClosed) {
    dialWhenListening();
    faults::answerNext(Call::ACCEPT, 0);
    EXPECT_EQ(server_.connect(port_), 0);
    EXPECT_EQ(server_.disconnect(), 0);
    EXPECT_EQ(faults::callsOf(Call::CLOSE), 1);  // the listener
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

}  // namespace
