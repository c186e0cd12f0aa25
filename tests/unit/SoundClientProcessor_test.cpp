// SPDX-License-Identifier: MIT
// The life of the parser and its commands; DATA blocks and single steps have files of their own.
#include "SoundClientProcessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

#include "sound_client_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SoundClientProcessorTest : public SoundClientFixture {};

static_assert(std::has_virtual_destructor_v<SoundClientProcessor>);
static_assert(std::is_base_of_v<std::runtime_error, SoundClientProcessorError>);

TEST(SoundClientProcessorErrorTest, CarriesItsTag) {
    EXPECT_STREQ(SoundClientProcessorError("text").what(), "[SoundClientProcessorError] text");
}

TEST_F(SoundClientProcessorTest, BeginsWithEpdOnAndWithoutFrames) {
    EXPECT_TRUE(parser_.getEpdState());
    EXPECT_THAT(frames(), IsEmpty());
}

TEST_F(SoundClientProcessorTest, InitializeReturnsOne) {
    EXPECT_EQ(parser_.initialize(), 1);
}

TEST_F(SoundClientProcessorTest, InitializeTurnsEpdOn) {
    receive(command("EPD_OFF"));
    parser_.initialize();
    EXPECT_TRUE(parser_.getEpdState());
}

TEST_F(SoundClientProcessorTest, InitializeEmptiesTheFrames) {
    receive(command("BEGIN"));
    parser_.initialize();
    EXPECT_THAT(frames(), IsEmpty());
}

TEST_F(SoundClientProcessorTest, InitializeEmptiesTheBytes) {
    receive("DATA 100\n\nhalf");
    parser_.initialize();
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, InitializeForgetsBytesWithoutKeyword) {
    receive(std::string(1000, '-'));
    parser_.initialize();
    EXPECT_FALSE(receiveFails("DATA 7"));
    EXPECT_FALSE(receiveFails("\n\n" + ramp(7)));
    EXPECT_THAT(frames(), IsEmpty());
}

TEST_F(SoundClientProcessorTest, InitializeEndsAWaitForEver) {
    receive("DATA x\n\n");
    parser_.initialize();
    receive(command("BEGIN"));
    EXPECT_THAT(types(), ElementsAre(9, 1));
}

TEST_F(SoundClientProcessorTest, ProcessWithoutBytesDoesNothing) {
    parser_.process();
    EXPECT_THAT(frames(), IsEmpty());
    EXPECT_EQ(log_.text(), "");
}

TEST_F(SoundClientProcessorTest, AddingBytesAloneHandlesNothing) {
    parser_.addReceiveData(bytesOf(command("BEGIN")));
    EXPECT_THAT(frames(), IsEmpty());
    EXPECT_EQ(log_.text(), "");
}

TEST_F(SoundClientProcessorTest, GetSendDataTakesTheOldestFrame) {
    parser_.addStartFrame();
    parser_.addEndFrame();
    ReceiveData frame;
    EXPECT_TRUE(parser_.getSendData(frame));
    EXPECT_EQ(frame, makeFrame(1));
    EXPECT_TRUE(parser_.getSendData(frame));
    EXPECT_EQ(frame, makeFrame(2));
}

TEST_F(SoundClientProcessorTest, GetSendDataWithoutFramesLeavesTheCallersBytes) {
    ReceiveData frame = bytesOf("kept");
    EXPECT_FALSE(parser_.getSendData(frame));
    EXPECT_EQ(frame, bytesOf("kept"));
}

TEST_F(SoundClientProcessorTest, BeginGivesTofThenStart) {
    receive(command("BEGIN"));
    EXPECT_THAT(frames(), ElementsAre(makeFrame(9), makeFrame(1)));
    EXPECT_THAT(log_.lines(), ElementsAre(BEGIN_LINE));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, EndGivesEndThenEof) {
    receive(command("END"));
    EXPECT_THAT(frames(), ElementsAre(makeFrame(2), makeFrame(10)));
    EXPECT_THAT(log_.lines(), ElementsAre(END_LINE));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, CancelGivesEndThenEof) {
    receive(command("CANCEL"));
    EXPECT_THAT(frames(), ElementsAre(makeFrame(2), makeFrame(10)));
    EXPECT_THAT(log_.lines(), ElementsAre(CANCEL_LINE));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, EpdOffTurnsEpdOffWithoutAFrame) {
    receive(command("EPD_OFF"));
    EXPECT_FALSE(parser_.getEpdState());
    EXPECT_THAT(frames(), IsEmpty());
    EXPECT_THAT(log_.lines(), ElementsAre(EPD_OFF_LINE));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, EpdOnTurnsEpdOnWithoutAFrame) {
    receive(command("EPD_OFF"));
    log_.forget();
    receive(command("EPD_ON"));
    EXPECT_TRUE(parser_.getEpdState());
    EXPECT_THAT(frames(), IsEmpty());
    EXPECT_THAT(log_.lines(), ElementsAre(EPD_ON_LINE));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, EpdStateIsRepeatableAndUntouchedByOtherBlocks) {
    receive(command("EPD_OFF") + command("EPD_OFF"));
    receive(command("BEGIN") + dataBlock("abcd") + command("END") + command("CANCEL"));
    EXPECT_FALSE(parser_.getEpdState());
    receive(command("EPD_ON") + command("EPD_ON"));
    EXPECT_TRUE(parser_.getEpdState());
}

TEST_F(SoundClientProcessorTest, CommandsAreHandledInTheOrderOfArrival) {
    receive(command("BEGIN") + dataBlock("abcd") + command("CANCEL") + command("EPD_OFF"));
    EXPECT_THAT(types(), ElementsAre(9, 1, 0, 2, 10));
    EXPECT_THAT(log_.lines(), ElementsAre(BEGIN_LINE, DATA_LINE, CANCEL_LINE, EPD_OFF_LINE));
}

TEST_F(SoundClientProcessorTest, OneProcessTakesWhatSeveralReadsBrought) {
    for (const char* const part : {"EPD", "_O", "FF\r", "\n\r\nBEG", "IN\r\n\r\n"})
        parser_.addReceiveData(bytesOf(part));
    parser_.process();
    EXPECT_FALSE(parser_.getEpdState());
    EXPECT_THAT(types(), ElementsAre(9, 1));
}

// The terminator bytes are skipped without a look.
TEST_F(SoundClientProcessorTest, AnyFourBytesEndACommand) {
    receive("BEGINBEGIEND....");
    EXPECT_THAT(log_.lines(), ElementsAre(BEGIN_LINE, END_LINE));
    receive(std::string("EPD_OFF\0\0\0\0BEGIN", 16) + CRLF_TWICE);
    EXPECT_THAT(types(), ElementsAre(9, 1, 2, 10, 9, 1));
}

// The reference text has two line feeds, two bytes more are skipped: fine for CR LF twice.
TEST_F(SoundClientProcessorTest, CommandEndedByTwoLineFeedsLosesTwoBytesOfWhatFollows) {
    receive("BEGIN\n\nEND\r\n\r\n");
    EXPECT_THAT(log_.lines(), ElementsAre(BEGIN_LINE));
    log_.forget();
    receive("BEGIN\n\nxxEND\r\n\r\n");
    EXPECT_THAT(log_.lines(), ElementsAre(BEGIN_LINE, END_LINE));
}

TEST_F(SoundClientProcessorTest, CommandWithTwoLineFeedsAloneIsHandledAndLeavesNothing) {
    receive("BEGIN\n\n");
    EXPECT_THAT(types(), ElementsAre(9, 1));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, CommandWithoutTerminatorIsHandledAtOnce) {
    receive("EPD_OFF");
    EXPECT_FALSE(parser_.getEpdState());
    receive("CANCEL");
    EXPECT_THAT(types(), ElementsAre(2, 10));
}

// The late terminator is no longer part of the command; it only lies ahead of the next block.
TEST_F(SoundClientProcessorTest, CommandCutInItsTerminatorEmptiesTheBuffer) {
    receive("BEGIN\r\n");
    EXPECT_THAT(types(), ElementsAre(9, 1));
    EXPECT_FALSE(bytesAreLeft());
    parser_.initialize();
    receive("BEGIN\r\n");
    receive("\r\nEND\r\n\r\n");
    EXPECT_THAT(types(), ElementsAre(9, 1, 2, 10));
}

TEST_F(SoundClientProcessorTest, CommandMissingOneTerminatorByteTakesWhatIsThere) {
    for (const char* const keyword : {"END", "CANCEL", "BEGIN", "EPD_ON", "EPD_OFF"}) {
        receive(std::string(keyword) + "\r\n\r");
        frames();
        EXPECT_FALSE(bytesAreLeft()) << keyword;
        parser_.initialize();
    }
}

TEST_F(SoundClientProcessorTest, CommandLeavesTheFirstByteBehindItsTerminator) {
    for (const char* const keyword : {"END", "CANCEL", "BEGIN", "EPD_ON", "EPD_OFF"}) {
        receive(command(keyword) + "x");
        frames();
        EXPECT_TRUE(bytesAreLeft()) << keyword;
        parser_.initialize();
    }
}

TEST_F(SoundClientProcessorTest, KeywordIsFoundInsideAWord) {
    receive("ABEND");
    EXPECT_THAT(frames(), ElementsAre(makeFrame(2), makeFrame(10)));
    EXPECT_THAT(log_.lines(), ElementsAre(END_LINE));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, KeywordsAreCaseSensitive) {
    receive("end\r\n\r\nBegin\r\n\r\nepd_off\r\n\r\nEPD_off\r\n\r\nCancel\r\n\r\ndata 0\n\nx");
    EXPECT_THAT(frames(), IsEmpty());
    EXPECT_TRUE(parser_.getEpdState());
    EXPECT_EQ(log_.text(), "");
}

TEST_F(SoundClientProcessorTest, KeywordSplitAcrossReadsIsFound) {
    receive("--EPD_");
    receive("OF");
    EXPECT_EQ(log_.text(), "");
    receive("F");
    EXPECT_THAT(log_.lines(), ElementsAre(EPD_OFF_LINE));
}

TEST_F(SoundClientProcessorTest, BytesAheadOfAKeywordAreDroppedWithTheBlock) {
    receive(std::string("\0\xFFnoise EN DAT ", 15) + command("BEGIN"));
    EXPECT_THAT(types(), ElementsAre(9, 1));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, BytesWithoutKeywordStay) {
    receive("noise");
    EXPECT_EQ(log_.text(), "");
    EXPECT_TRUE(bytesAreLeft());
}

TEST_F(SoundClientProcessorTest, SaysNothingAboveTheReportingLevel) {
    const LogCapture quiet(logERROR);
    receive(command("BEGIN") + "DATA 2\n\nxx" + command("END") + command("CANCEL"));
    EXPECT_THAT(types(), ElementsAre(9, 1, 0, 2, 10, 2, 10));
    receive(command("EPD_OFF"));
    EXPECT_FALSE(parser_.getEpdState());
    receive(command("EPD_ON"));
    EXPECT_TRUE(parser_.getEpdState());
    EXPECT_EQ(quiet.text(), "");
}

}  // namespace
