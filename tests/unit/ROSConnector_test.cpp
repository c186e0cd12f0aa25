// SPDX-License-Identifier: MIT
#include "ROSConnector.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "ros_connector_fixture.h"

namespace {

using faults::Call;

static_assert(std::has_virtual_destructor_v<ROSConnector>);

TEST_F(ROSConnectorTest, InitializeReturnsTrueAndStartsSilent) {
    EXPECT_TRUE(connector_.initialize());
    EXPECT_FALSE(playing());
}

TEST_F(ROSConnectorTest, ErrorTextCarriesTheTag) {
    EXPECT_STREQ(ROSConnectorError("text").what(), "[ROSConnectorError] text");
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, ROSConnectorError>));
}

TEST_F(ROSConnectorTest, InitializeForgetsStateAndQueue) {
    processing("play_sound_on\n");
    send("block");
    connector_.initialize();
    EXPECT_FALSE(playing());
    connector_.process();
    EXPECT_EQ(node_.output(), "");
}

TEST_F(ROSConnectorTest, InitializeForgetsUninterpretedInput) {
    node_.say("play_sound_on\n");
    connector_.readData();
    connector_.initialize();
    connector_.processData();
    EXPECT_FALSE(playing());
}

TEST_F(ROSConnectorTest, TheDestructorClosesNeitherStream) {
    { ROSConnector other; }
    EXPECT_EQ(faults::callsOf(Call::CLOSE), 0);
    EXPECT_TRUE(openDescriptors().count(STDIN_FILENO));
    EXPECT_TRUE(openDescriptors().count(STDOUT_FILENO));
}

// Output.

TEST_F(ROSConnectorTest, NothingIsWrittenBeforeProcess) {
    send("block");
    EXPECT_EQ(node_.output(), "");
}

TEST_F(ROSConnectorTest, BlocksAreWrittenInOrderWithNothingBetweenThem) {
    send(std::string("a\0b", 3));
    send("\n");
    send("c");
    connector_.process();
    EXPECT_EQ(node_.output(), std::string("a\0b\nc", 5));
    EXPECT_EQ(faults::callsOf(Call::WRITE), 3);
}

TEST_F(ROSConnectorTest, ABlockIsWrittenOnce) {
    send("block");
    connector_.process();
    connector_.process();
    EXPECT_EQ(node_.output(), "block");
}

TEST_F(ROSConnectorTest, AnEmptyBlockIsAWriteOfZeroBytesAndLeavesTheQueue) {
    send("");
    connector_.process();
    EXPECT_EQ(faults::callsOf(Call::WRITE), 1);
    connector_.process();
    EXPECT_EQ(faults::callsOf(Call::WRITE), 1);
}

TEST_F(ROSConnectorTest, AShortWriteIsASuccessAndNotRetried) {
    send("block");
    faults::shortenNext(Call::WRITE, 2);
    connector_.process();
    connector_.process();
    EXPECT_EQ(node_.output(), "bl");
}

TEST_F(ROSConnectorTest, WriteReturnsZeroAndNotTheCount) {
    EXPECT_EQ(connector_.write("block", 5), 0);
    EXPECT_EQ(node_.output(), "block");
}

TEST_F(ROSConnectorTest, BufferedOutputOfTheProcessFollowsEachBlock) {
    fputs("buffered", stdout);
    send("block ");
    connector_.process();
    EXPECT_EQ(node_.output(), "block buffered");
}

TEST_F(ROSConnectorTest, AFailedWriteThrowsAndKeepsTheBlock) {
    send("first ");
    send("second");
    faults::failNext(Call::WRITE, EIO);
    EXPECT_EQ(errorOfProcess(),
              withSystemText("[ROSConnectorError] Stdout write failed. error : ", EIO));
    connector_.process();
    EXPECT_EQ(node_.output(), "first second");
}

TEST_F(ROSConnectorTest, BlocksAreWrittenBeforeInputIsRead) {
    send("block");
    node_.hangUp();
    EXPECT_NE(errorOfProcess(), "");
    EXPECT_EQ(node_.output(), "block");
}

TEST_F(ROSConnectorTest, AFailedWriteLeavesInputUnread) {
    send("block");
    node_.say("play_sound_on\n");
    faults::failNext(Call::WRITE, EIO);
    EXPECT_NE(errorOfProcess(), "");
    EXPECT_FALSE(playing());
    EXPECT_EQ(faults::callsOf(Call::READ), 0);
}

}  // namespace
