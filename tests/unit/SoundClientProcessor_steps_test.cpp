// SPDX-License-Identifier: MIT
// The frames that the parser makes, and the steps of process on texts of the caller's.
#include "SoundClientProcessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "sound_client_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class SoundClientSteps : public SoundClientFixture {};

TEST_F(SoundClientSteps, MarkerFramesAreSilent) {
    parser_.addStartFrame();
    parser_.addTOFFrame();
    parser_.addEOFFrame();
    parser_.addEndFrame();
    EXPECT_THAT(frames(), ElementsAre(makeFrame(1), makeFrame(9), makeFrame(10), makeFrame(2)));
}

TEST_F(SoundClientSteps, DataIsCutIntoFramesOf320Bytes) {
    const std::string data = ramp(960);
    parser_.addDataFrame(data);
    EXPECT_THAT(frames(),
                ElementsAre(frameWith(0, data.substr(0, 320)), frameWith(0, data.substr(320, 320)),
                            frameWith(0, data.substr(640))));
}

TEST_F(SoundClientSteps, TheLastFrameIsPaddedWithZeros) {
    const std::string data = ramp(1000);
    parser_.addDataFrame(data);
    const Frames all = frames();
    ASSERT_THAT(all, SizeIs(4));
    EXPECT_EQ(all[3], frameWith(0, data.substr(960) + std::string(280, '\0')));
}

TEST_F(SoundClientSteps, OneByteGivesOneFrame) {
    parser_.addDataFrame("x");
    EXPECT_THAT(frames(), ElementsAre(frameWith(0, "x" + std::string(319, '\0'))));
}

TEST_F(SoundClientSteps, NoDataGivesNoFrame) {
    parser_.addDataFrame("");
    EXPECT_THAT(frames(), IsEmpty());
}

// Nothing takes the frames while a link is up; ten minutes of audio are kept.
TEST_F(SoundClientSteps, SixtyThousandFramesAreKept) {
    parser_.addStartFrame();
    parser_.addDataFrame(std::string(59999 * 320, 'x'));
    EXPECT_EQ(log_.text(), "");
    const Frames all = frames();
    EXPECT_THAT(all, SizeIs(60000));
    EXPECT_EQ(all.front(), makeFrame(1));
}

TEST_F(SoundClientSteps, MoreFramesDropTheOldestWithOneWarning) {
    parser_.addStartFrame();
    parser_.addTOFFrame();
    parser_.addDataFrame(std::string(59999 * 320, 'x'));
    EXPECT_THAT(log_.lines(), ElementsAre(StartsWith("WARNING: ")));
    parser_.addEndFrame();
    parser_.addEOFFrame();
    EXPECT_THAT(log_.lines(), SizeIs(1));
    const Frames all = frames();
    ASSERT_THAT(all, SizeIs(60000));
    EXPECT_EQ(all.front(), makeFrame(0, 320, 'x'));
    EXPECT_EQ(all.at(59998), makeFrame(2));
    EXPECT_EQ(all.back(), makeFrame(10));
}

TEST_F(SoundClientSteps, ANewLinkWarnsAgain) {
    for (int link = 0; link < 2; ++link) {
        parser_.addDataFrame(std::string(60001 * 320, 'x'));
        parser_.initialize();
    }
    EXPECT_THAT(log_.lines(), SizeIs(2));
}

TEST_F(SoundClientSteps, GetNextHeaderTellsEveryKeyword) {
    const std::pair<const char*, int> codes[] = {{"DATA", 0},  {"END", 1},    {"CANCEL", 2},
                                                 {"BEGIN", 3}, {"EPD_ON", 5}, {"EPD_OFF", 6}};
    for (const auto& [keyword, code] : codes) {
        size_t pos = 99;
        EXPECT_EQ(parser_.getNextHeader(std::string("E_D") + keyword + "END", pos), code);
        EXPECT_EQ(pos, 3U) << keyword;
    }
}

TEST_F(SoundClientSteps, GetNextHeaderFindsTheEarliestKeyword) {
    size_t pos = 99;
    EXPECT_EQ(parser_.getNextHeader("..EPD_OFFDATACANCEL", pos), 6);
    EXPECT_EQ(pos, 2U);
    EXPECT_EQ(parser_.getNextHeader(std::string("\0\0ENDBEGINDATA", 14), pos), 1);
    EXPECT_EQ(pos, 2U);
}

TEST_F(SoundClientSteps, GetNextHeaderWithoutKeywordLeavesThePosition) {
    size_t pos = 99;
    for (const char* const text : {"", "EPD_", "EPD_O", "EN", "DAT", "BEGI", "CANCE", "end"})
        EXPECT_EQ(parser_.getNextHeader(text, pos), -1) << text;
    EXPECT_EQ(pos, 99U);
}

TEST_F(SoundClientSteps, ProcessDataTakesOneBlock) {
    std::string src = "--" + command("BEGIN") + command("END");
    EXPECT_TRUE(parser_.processData(src));
    EXPECT_EQ(src, command("END"));
    EXPECT_THAT(types(), ElementsAre(9, 1));
    EXPECT_THAT(log_.lines(), ElementsAre(BEGIN_LINE));
}

TEST_F(SoundClientSteps, ProcessDataWithoutABlockLeavesTheText) {
    std::string src = "no keyword";
    EXPECT_FALSE(parser_.processData(src));
    EXPECT_EQ(src, "no keyword");
    src = "";
    EXPECT_FALSE(parser_.processData(src));
    EXPECT_EQ(log_.text(), "");
}

TEST_F(SoundClientSteps, ProcessDataLeavesAnIncompleteDataBlock) {
    std::string src = "--DATA 100\n\nhalf";
    EXPECT_FALSE(parser_.processData(src));
    EXPECT_EQ(src, "--DATA 100\n\nhalf");
    EXPECT_THAT(log_.lines(), ElementsAre(DATA_LINE));
}

TEST_F(SoundClientSteps, ProcessDataLeavesACutHeader) {
    std::string src = "--DATA 1";
    EXPECT_THROW(parser_.processData(src), std::out_of_range);
    EXPECT_EQ(src, "--DATA 1");
}

TEST_F(SoundClientSteps, ProcessDataLeavesReceivedBytesAlone) {
    receive("DATA 9\n\nhalf");
    std::string src = command("END");
    EXPECT_TRUE(parser_.processData(src));
    EXPECT_EQ(src, "");
    receive(" done.x");
    EXPECT_THAT(types(), ElementsAre(2, 10, 0));
}

TEST_F(SoundClientSteps, ProcessDataBlockIsSilent) {
    std::string src = "xDATA 4\n\nabcdefg";
    EXPECT_TRUE(parser_.processDataBlock(src, 1));
    EXPECT_EQ(src, "efg");
    EXPECT_THAT(types(), ElementsAre(0));
    EXPECT_EQ(log_.text(), "");
}

TEST_F(SoundClientSteps, ProcessDataBlockMeasuresAgainstTheWholeText) {
    std::string front = "DATA 4\n\nabcd";
    EXPECT_FALSE(parser_.processDataBlock(front, 0));
    EXPECT_EQ(front, "DATA 4\n\nabcd");
    std::string behind = "xDATA 4\n\nabcd";
    EXPECT_TRUE(parser_.processDataBlock(behind, 1));
    EXPECT_EQ(behind, "");
}

TEST_F(SoundClientSteps, ProcessCmdBlockTakesTheReferenceAndTwoBytes) {
    std::string src = "xxKEYabcdrest";
    EXPECT_TRUE(parser_.processCmdBlock(src, 2, "KEY\n\n"));
    EXPECT_EQ(src, "rest");
    EXPECT_THAT(frames(), IsEmpty());
    EXPECT_EQ(log_.text(), "");
}

TEST_F(SoundClientSteps, ProcessCmdBlockTakesATextThatEndsRightThere) {
    std::string src = "END1234";
    EXPECT_TRUE(parser_.processCmdBlock(src, 0, "END\n\n"));
    EXPECT_EQ(src, "");
}

TEST_F(SoundClientSteps, ProcessCmdBlockEmptiesATextThatIsTooShort) {
    for (const char* const text : {"END", "END12", "END123", "--END\r\n\r"}) {
        std::string src = text;
        EXPECT_TRUE(parser_.processCmdBlock(src, src.find("END"), "END\n\n"));
        EXPECT_EQ(src, "") << text;
    }
}

TEST_F(SoundClientSteps, ProcessBeginBlockDoesTheWholeRow) {
    std::string src = "--" + command("BEGIN") + "rest";
    EXPECT_TRUE(parser_.processBeginBlock(src, 2));
    EXPECT_EQ(src, "rest");
    EXPECT_THAT(frames(), ElementsAre(makeFrame(9), makeFrame(1)));
    EXPECT_THAT(log_.lines(), ElementsAre(BEGIN_LINE));
}

TEST_F(SoundClientSteps, ProcessEndBlockDoesTheWholeRow) {
    std::string src = "--" + command("END") + "rest";
    EXPECT_TRUE(parser_.processEndBlock(src, 2));
    EXPECT_EQ(src, "rest");
    EXPECT_THAT(frames(), ElementsAre(makeFrame(2), makeFrame(10)));
    EXPECT_THAT(log_.lines(), ElementsAre(END_LINE));
}

TEST_F(SoundClientSteps, ProcessCancelBlockDoesTheWholeRow) {
    std::string src = "--" + command("CANCEL") + "rest";
    EXPECT_TRUE(parser_.processCancelBlock(src, 2));
    EXPECT_EQ(src, "rest");
    EXPECT_THAT(frames(), ElementsAre(makeFrame(2), makeFrame(10)));
    EXPECT_THAT(log_.lines(), ElementsAre(CANCEL_LINE));
}

TEST_F(SoundClientSteps, ProcessEpdOffAndOnBlocksDoTheWholeRow) {
    std::string src = command("EPD_OFF") + command("EPD_ON") + "rest";
    EXPECT_TRUE(parser_.processEpdOffBlock(src, 0));
    EXPECT_FALSE(parser_.getEpdState());
    EXPECT_TRUE(parser_.processEpdOnBlock(src, 0));
    EXPECT_TRUE(parser_.getEpdState());
    EXPECT_EQ(src, "rest");
    EXPECT_THAT(log_.lines(), ElementsAre(EPD_OFF_LINE, EPD_ON_LINE));
    EXPECT_THAT(frames(), IsEmpty());
}

TEST_F(SoundClientSteps, ProcessBlockActsOnACutCommand) {
    std::string src = "--BEGIN\n\n";
    EXPECT_TRUE(parser_.processBeginBlock(src, 2));
    EXPECT_EQ(src, "");
    EXPECT_THAT(types(), ElementsAre(9, 1));
}

}  // namespace
