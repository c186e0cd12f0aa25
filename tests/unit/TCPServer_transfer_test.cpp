// SPDX-License-Identifier: MIT
// Bytes over an open connection, and what a quiet log leaves out.
#include <gtest/gtest.h>

#include <cerrno>

#include "TCPServer.h"
#include "error_text.h"
#include "faults.h"
#include "log_capture.h"
#include "tcp_server_fixture.h"

namespace {

using faults::Call;

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
    faults::answerNext(Call::SELECT, 0);
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
    faults::shortenNext(Call::WRITE, 3);
    EXPECT_EQ(send("hello"), 3);
    EXPECT_EQ(faults::callsOf(Call::WRITE), 1);
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
    failNext(Call::WRITE, EPIPE);
    EXPECT_EQ(send("hello"), -4);
    EXPECT_EQ(logged(), line(withSystemText("WARNING: Socket write failed. error : ", EPIPE)));
}

TEST_F(TCPServerTest, AFailedWaitIsMinusSevenAndCalledATimeout) {
    connect();
    failNext(Call::SELECT, EINTR);
    EXPECT_EQ(receive(0), -7);
    EXPECT_EQ(logged(), line("DEBUG: TCP server receive timeout occured."));
}

TEST_F(TCPServerTest, AFailedReadIsMinusFiveWithTheSystemText) {
    connect();
    peer_.send("hello");
    failNext(Call::READ, ECONNRESET);
    EXPECT_EQ(receive(10000), -5);
    EXPECT_EQ(logged(), line(withSystemText("DEBUG: Receive data failed. error : ", ECONNRESET)));
}

TEST_F(TCPServerTest, SaysNothingAboveTheReportingLevel) {
    const LogCapture quiet(logERROR);
    faults::failNext(Call::SOCKET, EMFILE);
    EXPECT_EQ(server_.connect(port_), -2);
    faults::answerNext(Call::SELECT, 0);
    EXPECT_EQ(server_.connect(port_), -7);
    connect();
    faults::failNext(Call::WRITE, EIO);
    EXPECT_EQ(send("text"), -4);
    faults::failNext(Call::SELECT, EBADF);
    EXPECT_EQ(receive(0), -7);
    peer_.send("text");
    faults::failNext(Call::READ, EIO);
    EXPECT_EQ(receive(10000), -5);
    faults::failNext(Call::CLOSE, EIO);
    EXPECT_EQ(server_.disconnect(), -3);
    EXPECT_EQ(quiet.text(), "");
    EXPECT_TRUE(logged().empty());
}

}  // namespace
