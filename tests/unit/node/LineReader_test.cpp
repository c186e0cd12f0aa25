// SPDX-License-Identifier: MIT
#include "LineReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LineReaderTest : public testing::Test {
  protected:
    std::vector<std::string> lines_;
    node::LineReader reader_{[this](const std::string& line) { lines_.push_back(line); }};
};

TEST_F(LineReaderTest, CutsAtLineFeeds) {
    reader_.read("one\ntwo\n\nfour\n");
    EXPECT_THAT(lines_, ElementsAre("one", "two", "", "four"));
    EXPECT_FALSE(reader_.unfinished());
}

TEST_F(LineReaderTest, TheSameLinesWhateverTheCuts) {
    const std::string text = "first line\nsecond\n\nthe last one\n";
    for (size_t cut = 0; cut <= text.size(); ++cut) {
        lines_.clear();
        reader_.read(text.substr(0, cut));
        reader_.read(text.substr(cut));
        EXPECT_THAT(lines_, ElementsAre("first line", "second", "", "the last one")) << cut;
    }
}

TEST_F(LineReaderTest, AnUnfinishedLineWaitsForItsEnd) {
    reader_.read("Connecting to Server ... ");
    EXPECT_THAT(lines_, IsEmpty());
    EXPECT_TRUE(reader_.unfinished());
    reader_.read("[Connected]\n");
    EXPECT_THAT(lines_, ElementsAre("Connecting to Server ... [Connected]"));
    EXPECT_FALSE(reader_.unfinished());
}

TEST_F(LineReaderTest, FlushTakesWhatThereIsForALine) {
    reader_.read("Connecting to Server ... ");
    reader_.flush();
    EXPECT_THAT(lines_, ElementsAre("Connecting to Server ... "));
    EXPECT_FALSE(reader_.unfinished());
    reader_.read("[Connected]\n");
    EXPECT_THAT(lines_, ElementsAre("Connecting to Server ... ", "[Connected]"));
}

TEST_F(LineReaderTest, FlushOfNothingIsNothing) {
    reader_.flush();
    reader_.read("line\n");
    reader_.flush();
    reader_.flush();
    EXPECT_THAT(lines_, ElementsAre("line"));
}

TEST_F(LineReaderTest, ALineOfTheLongestLengthIsWhole) {
    const std::string line(node::LineReader::LONGEST, 'x');
    reader_.read(line + "\nnext\n");
    EXPECT_THAT(lines_, ElementsAre(line, "next"));
}

TEST_F(LineReaderTest, ALongerLineIsCutAndTheNextOneIsWhole) {
    const std::string cut(node::LineReader::LONGEST, 'x');
    reader_.read(cut + "yyy\nnext\n");
    EXPECT_THAT(lines_, ElementsAre(cut, "next"));
}

TEST_F(LineReaderTest, MegabytesWithoutALineFeedAreOneCutLine) {
    for (int i = 0; i < 5000; ++i)
        reader_.read(std::string(1000, 'x'));
    EXPECT_THAT(lines_, IsEmpty());
    reader_.read("\nnext\n");
    EXPECT_THAT(lines_, ElementsAre(std::string(node::LineReader::LONGEST, 'x'), "next"));
}

TEST_F(LineReaderTest, AnyByteButTheLineFeedIsPartOfALine) {
    const std::string bytes("a\0b\r\xFF", 5);
    reader_.read(bytes + "\n");
    EXPECT_THAT(lines_, ElementsAre(bytes));
}

}  // namespace
