// SPDX-License-Identifier: MIT
// What the node says, and how reading fails.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "ROSConnector.h"
#include "error_text.h"
#include "faults.h"
#include "log_capture.h"
#include "ros_connector_fixture.h"

namespace {

using faults::Call;

const char* const ON_LINE = "INFO: play sound state from ros node is on.";
const char* const OFF_LINE = "INFO: play sound state from ros node is off.";

TEST_F(ROSConnectorTest, TheTwoWordsSwitchTheState) {
    processing("play_sound_on\n");
    EXPECT_TRUE(playing());
    processing("play_sound_off\n");
    EXPECT_FALSE(playing());
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{ON_LINE, OFF_LINE}));
}

TEST_F(ROSConnectorTest, AWordWithoutWhiteSpaceBehindItHasNoEffect) {
    processing("play_sound_on");
    EXPECT_FALSE(playing());
    EXPECT_EQ(log_.text(), "");
}

TEST_F(ROSConnectorTest, TheLastOfSeveralWordsWins) {
    processing("play_sound_on play_sound_off\n");
    EXPECT_FALSE(playing());
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{ON_LINE, OFF_LINE}));
}

TEST_F(ROSConnectorTest, EveryKindOfWhiteSpaceEndsAWord) {
    for (const char space : {' ', '\t', '\n', '\r', '\v', '\f'}) {
        connector_.initialize();
        processing(std::string("play_sound_on") + space);
        EXPECT_TRUE(playing()) << static_cast<int>(space);
    }
}

TEST_F(ROSConnectorTest, OtherWordsAreIgnored) {
    processing("PLAY_SOUND_ON play_sound_on2 xplay_sound_on play sound_on\n");
    EXPECT_FALSE(playing());
    EXPECT_EQ(log_.text(), "");
}

TEST_F(ROSConnectorTest, ARepeatedWordIsLoggedAgain) {
    processing("play_sound_on play_sound_on\n");
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{ON_LINE, ON_LINE}));
}

TEST_F(ROSConnectorTest, NothingToReadLeavesTheState) {
    processing("play_sound_on\n");
    connector_.process();
    EXPECT_TRUE(playing());
    EXPECT_EQ(faults::microsecondsAsked(), 0);
    EXPECT_EQ(faults::callsOf(Call::READ), 1);
}

TEST_F(ROSConnectorTest, AWordSplitAcrossTwoReadsIsLost) {
    processing("play_so");
    processing("und_on\n");
    EXPECT_FALSE(playing());
}

TEST_F(ROSConnectorTest, APassTakes256Bytes) {
    node_.say(std::string(256, ' ') + "play_sound_on\n");
    connector_.process();
    EXPECT_FALSE(playing());
    connector_.process();
    EXPECT_TRUE(playing());
}

TEST_F(ROSConnectorTest, AWordCutAtThe256ByteBoundaryIsLost) {
    node_.say(std::string(250, ' ') + "play_sound_on\n");
    connector_.process();
    connector_.process();
    EXPECT_FALSE(playing());
}

TEST_F(ROSConnectorTest, AWordThatFillsAReadToItsEndNeedsNoWhiteSpace) {
    processing(std::string(256 - 13, ' ') + "play_sound_on");
    EXPECT_TRUE(playing());
}

TEST_F(ROSConnectorTest, EachWordIsLoggedAtDebugLevel) {
    const LogCapture debug(logDEBUG);
    processing(std::string(251, ' ') + "a bc\n");
    EXPECT_EQ(debug.lines(), (std::vector<std::string>{"DEBUG: ros connector receive :a",
                                                       "DEBUG: ros connector receive :bc"}));
}

// The padding is a word of its own, whose line is cut at its first byte, line feed included.
TEST_F(ROSConnectorTest, TheNulPaddingIsAWordWhoseLineIsCut) {
    const LogCapture debug(logDEBUG);
    processing("x\n");
    EXPECT_EQ(debug.lines(), (std::vector<std::string>{"DEBUG: ros connector receive :x",
                                                       "DEBUG: ros connector receive :"}));
    EXPECT_EQ(debug.text().back(), ':');
}

TEST_F(ROSConnectorTest, TheNulPaddingSticksToAWordWithoutWhiteSpace) {
    const LogCapture debug(logDEBUG);
    processing("play_sound_on");
    ASSERT_EQ(debug.lines().size(), 1u);
    EXPECT_EQ(debug.lines()[0], "DEBUG: ros connector receive :play_sound_on");
    EXPECT_EQ(debug.text().back(), 'n');
}

TEST_F(ROSConnectorTest, TheEndOfInputThrows) {
    node_.hangUp();
    EXPECT_EQ(errorOfProcess(), "[ROSConnectorError] ROS connector read failed.");
    EXPECT_EQ(errorOfProcess(), "[ROSConnectorError] ROS connector read failed.");
}

TEST_F(ROSConnectorTest, WordsAheadOfTheEndOfInputStillCount) {
    node_.say("play_sound_on\n");
    node_.hangUp();
    connector_.process();
    EXPECT_TRUE(playing());
    EXPECT_NE(errorOfProcess(), "");
}

TEST_F(ROSConnectorTest, AFailedWaitForInputSpeaksOfStdout) {
    faults::failNext(Call::SELECT, EINTR);
    EXPECT_EQ(errorOfProcess(),
              withSystemText("[ROSConnectorError] Stdout select failed. error : ", EINTR));
}

TEST_F(ROSConnectorTest, AFailedReadThrows) {
    node_.say("x\n");
    faults::failNext(Call::READ, EIO);
    EXPECT_EQ(errorOfProcess(),
              withSystemText("[ROSConnectorError] Stdin read failed. error : ", EIO));
}

TEST_F(ROSConnectorTest, AnyOtherErrorIsAnUnknownException) {
    node_.say("x\n");
    faults::afterNext(Call::READ, [] { throw std::bad_alloc(); });
    EXPECT_EQ(errorOfProcess(), "[ROSConnectorError] Unknown Exception.");
}

TEST_F(ROSConnectorTest, ReadReturnsMinusOneOnTimeout) {
    char buffer[4];
    EXPECT_EQ(connector_.read(buffer, sizeof(buffer), 10), -1);
}

TEST_F(ROSConnectorTest, ReadWaitsSecondsAndMicrosecondsOfItsTimeout) {
    char buffer[4];
    faults::answerNext(Call::SELECT, 0);
    EXPECT_EQ(connector_.read(buffer, sizeof(buffer), 1500), -1);
    EXPECT_EQ(faults::microsecondsAsked(), 1'500'000);
}

TEST_F(ROSConnectorTest, ReadReturnsTheCountAndZeroAtTheEnd) {
    char buffer[4];
    node_.say("abcdef");
    EXPECT_EQ(connector_.read(buffer, sizeof(buffer), 0), 4);
    EXPECT_EQ(connector_.read(buffer, sizeof(buffer), 0), 2);
    node_.hangUp();
    EXPECT_EQ(connector_.read(buffer, sizeof(buffer), 0), 0);
}

TEST_F(ROSConnectorTest, SaysNothingAboveTheReportingLevel) {
    const LogCapture quiet(logERROR);
    processing("play_sound_on\n");
    EXPECT_TRUE(playing());
    processing("play_sound_off\n");
    EXPECT_FALSE(playing());
    EXPECT_EQ(quiet.text(), "");
}

}  // namespace
