// SPDX-License-Identifier: MIT
#include "FrameCounter.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "frames.h"

namespace {

class FrameCounterTest : public testing::Test {
  protected:
    int count(int32_t type, int times = 1) {
        int header = 0;
        for (int i = 0; i < times; ++i)
            header = counter_.count(makeFrame(type));
        return header;
    }

    FrameCounter counter_;
};

TEST_F(FrameCounterTest, BeginsAtZero) {
    EXPECT_EQ(counter_.str(), "data:0 start:0 end:0 tof:0 eof:0 unknown:0");
}

TEST_F(FrameCounterTest, CountsEachTypeOnItsOwn) {
    count(0, 120);
    count(1, 2);
    count(2, 3);
    count(9, 4);
    count(10, 5);
    count(7, 6);
    EXPECT_EQ(counter_.str(), "data:120 start:2 end:3 tof:4 eof:5 unknown:6");
}

TEST_F(FrameCounterTest, PrintsTheExampleOfOneUtterance) {
    for (const int type : {9, 1, 2, 10})
        count(type);
    count(0, 120);
    EXPECT_EQ(counter_.str(), "data:120 start:1 end:1 tof:1 eof:1 unknown:0");
}

TEST_F(FrameCounterTest, CountsEveryOtherHeaderAsUnknown) {
    for (const int type : {3, 4, 5, 6, 7, 8, 11, 256, 0x7FFFFFFF})
        count(type);
    EXPECT_EQ(counter_.str(), "data:0 start:0 end:0 tof:0 eof:0 unknown:9");
}

TEST_F(FrameCounterTest, CountsANegativeHeaderAsUnknown) {
    EXPECT_EQ(counter_.count(bytesOf({0xFF, 0xFF, 0xFF, 0xFF})), -1);
    EXPECT_EQ(counter_.str(), "data:0 start:0 end:0 tof:0 eof:0 unknown:1");
}

TEST_F(FrameCounterTest, ReturnsTheHeader) {
    for (const int type : {0, 1, 2, 9, 10, 7, 0x12345678, -2})
        EXPECT_EQ(count(type), type);
}

TEST_F(FrameCounterTest, ReadsTheHeaderLeastSignificantByteFirst) {
    EXPECT_EQ(counter_.count(bytesOf({0x00, 0x00, 0x00, 0x0A})), 0x0A000000);
    EXPECT_EQ(counter_.str(), "data:0 start:0 end:0 tof:0 eof:0 unknown:1");
}

TEST_F(FrameCounterTest, NeedsNothingButTheHeader) {
    EXPECT_EQ(counter_.count(bytesOf({10, 0, 0, 0})), 10);
    EXPECT_EQ(counter_.str(), "data:0 start:0 end:0 tof:0 eof:1 unknown:0");
}

// Unknown frames are a fault of a producer; a new stream does not make them unseen.
TEST_F(FrameCounterTest, ResetKeepsUnknown) {
    for (const int type : {0, 1, 2, 9, 10, 3, -1})
        count(type);
    counter_.reset();
    EXPECT_EQ(counter_.str(), "data:0 start:0 end:0 tof:0 eof:0 unknown:2");
    count(3);
    counter_.reset();
    EXPECT_EQ(counter_.str(), "data:0 start:0 end:0 tof:0 eof:0 unknown:3");
}

TEST_F(FrameCounterTest, CountsOnAfterAReset) {
    count(0, 3);
    counter_.reset();
    count(0, 2);
    EXPECT_EQ(counter_.str(), "data:2 start:0 end:0 tof:0 eof:0 unknown:0");
}

TEST_F(FrameCounterTest, RefusesLessThanAHeaderAndCountsNothing) {
    for (size_t size = 0; size < 4; ++size)
        EXPECT_THROW(counter_.count(std::vector<char>(size)), std::invalid_argument) << size;
    EXPECT_EQ(counter_.str(), "data:0 start:0 end:0 tof:0 eof:0 unknown:0");
}

}  // namespace
