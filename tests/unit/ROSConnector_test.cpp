// SPDX-License-Identifier: MIT
#include "ROSConnector.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "error_text.h"
#include "faults.h"
#include "frames.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "stdio_pipes.h"

namespace {

using faults::Call;

class Connector : public ROSConnector {
  public:
    using ROSConnector::processData;
    using ROSConnector::read;
    using ROSConnector::readData;
    using ROSConnector::write;
    using ROSConnector::writeData;
};

class ROSConnectorTest : public HermeticTest {
  protected:
    ROSConnectorTest() {
        connector_.initialize();
        faults::clear();  // laying the pipes took some calls
    }

    // The node says this; one service step takes it.
    void processing(const std::string& text) {
        node_.say(text);
        connector_.process();
    }

    bool playing() const { return connector_.getPlaySoundState(); }
    void send(const std::string& block) { connector_.addSendData(bytesOf(block)); }

    std::string errorOfProcess() {
        return errorOf<ROSConnectorError>([this] { connector_.process(); });
    }

    StdioPipes node_;
    LogCapture log_{logINFO};
    Connector connector_;
};

const char* const ON_LINE = "INFO: play sound state from ros node is on.";
const char* const OFF_LINE = "INFO: play sound state from ros node is off.";

TEST_F(ROSConnectorTest, InitializeReturnsTrueAndStartsSilent) {
    EXPECT_TRUE(connector_.initialize());
    EXPECT_FALSE(playing());
    EXPECT_TRUE(std::has_virtual_destructor_v<ROSConnector>);
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
    EXPECT_EQ(faults::callsOf(Call::Close), 0);
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
    EXPECT_EQ(faults::callsOf(Call::Write), 3);
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
    EXPECT_EQ(faults::callsOf(Call::Write), 1);
    connector_.process();
    EXPECT_EQ(faults::callsOf(Call::Write), 1);
}

TEST_F(ROSConnectorTest, AShortWriteIsASuccessAndNotRetried) {
    send("block");
    faults::shortenNext(Call::Write, 2);
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
    faults::failNext(Call::Write, EIO);
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
    faults::failNext(Call::Write, EIO);
    EXPECT_NE(errorOfProcess(), "");
    EXPECT_FALSE(playing());
    EXPECT_EQ(faults::callsOf(Call::Read), 0);
}

// Input.

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
    EXPECT_EQ(faults::callsOf(Call::Read), 1);
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
    faults::failNext(Call::Select, EINTR);
    EXPECT_EQ(errorOfProcess(),
              withSystemText("[ROSConnectorError] Stdout select failed. error : ", EINTR));
}

TEST_F(ROSConnectorTest, AFailedReadThrows) {
    node_.say("x\n");
    faults::failNext(Call::Read, EIO);
    EXPECT_EQ(errorOfProcess(),
              withSystemText("[ROSConnectorError] Stdin read failed. error : ", EIO));
}

TEST_F(ROSConnectorTest, AnyOtherErrorIsAnUnknownException) {
    node_.say("x\n");
    faults::afterNext(Call::Read, [] { throw std::bad_alloc(); });
    EXPECT_EQ(errorOfProcess(), "[ROSConnectorError] Unknown Exception.");
}

TEST_F(ROSConnectorTest, ReadReturnsMinusOneOnTimeout) {
    char buffer[4];
    EXPECT_EQ(connector_.read(buffer, sizeof(buffer), 10), -1);
}

TEST_F(ROSConnectorTest, ReadWaitsSecondsAndMicrosecondsOfItsTimeout) {
    char buffer[4];
    faults::answerNext(Call::Select, 0);
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
