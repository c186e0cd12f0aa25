// SPDX-License-Identifier: MIT
#include "FrameReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "node_frames.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// What a reader said of a stream, one entry each, so that order counts too.
class FrameReaderTest : public testing::Test {
  protected:
    void read(std::string_view bytes) { reader_.read(bytes); }
    void readInPieces(std::string_view bytes, size_t size) {
        for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size())))
            read(bytes.substr(0, size));
    }
    static std::string soundingFrames(unsigned first, unsigned last) {
        std::string bytes;
        for (unsigned n = first; n <= last; ++n)
            bytes += sounding(n);
        return bytes;
    }

    std::vector<std::string> frames_;
    std::vector<size_t> losses_;  // bytes of each
    std::vector<std::string> reasons_;
    node::FrameReader reader_{[this](const node::Frame& frame) {
                                  frames_.emplace_back(frame.bytes.begin(), frame.bytes.end());
                              },
                              [this](size_t bytes, const std::string& reason) {
                                  losses_.push_back(bytes);
                                  reasons_.push_back(reason);
                              }};
};

TEST_F(FrameReaderTest, HandsOnEachOfTheFiveTypes) {
    const std::vector<std::string> sent = {sounding(1), marker(START), sounding(2),
                                           marker(END), marker(TOF),   marker(EOF_FRAME)};
    for (const std::string& frame : sent)
        read(frame);
    EXPECT_EQ(frames_, sent);
    EXPECT_THAT(losses_, IsEmpty());
}

TEST_F(FrameReaderTest, ManyFramesInOneReadAreManyFrames) {
    read(soundingFrames(1, 200));
    ASSERT_EQ(frames_.size(), 200U);
    EXPECT_EQ(frames_[199], sounding(200));
}

TEST_F(FrameReaderTest, AFrameCutAtAnyByteIsTheSameFrame) {
    const std::string stream = sounding(1) + marker(START) + sounding(2);
    for (size_t cut = 0; cut <= stream.size(); ++cut) {
        frames_.clear();
        read(stream.substr(0, cut));
        ASSERT_EQ(frames_.size(), cut / 324) << cut;  // no frame waits for the next one
        read(stream.substr(cut));
        ASSERT_THAT(frames_, ElementsAre(sounding(1), marker(START), sounding(2))) << cut;
    }
    EXPECT_THAT(losses_, IsEmpty());
}

TEST_F(FrameReaderTest, BytesOneByOneAreTheSameFrames) {
    readInPieces(soundingFrames(1, 5), 1);
    ASSERT_EQ(frames_.size(), 5U);
    EXPECT_EQ(frames_[4], sounding(5));
}

TEST_F(FrameReaderTest, NothingIsNoFrameAndNoLoss) {
    read("");
    reader_.end();
    EXPECT_THAT(frames_, IsEmpty());
    EXPECT_THAT(losses_, IsEmpty());
}

TEST_F(FrameReaderTest, AStreamOfWholeFramesEndsWithoutLoss) {
    read(soundingFrames(1, 3));
    reader_.end();
    EXPECT_THAT(losses_, IsEmpty());
}

TEST_F(FrameReaderTest, ATornLastFrameIsALossOfItsBytes) {
    for (const size_t left : {1U, 3U, 4U, 5U, 323U}) {
        losses_.clear();
        read(sounding(1) + sounding(2).substr(0, left));
        reader_.end();
        EXPECT_THAT(losses_, ElementsAre(left));
    }
    EXPECT_EQ(frames_.size(), 5U);
    EXPECT_THAT(reasons_.back(), HasSubstr("cut"));
}

// The bridge was killed amid a write, or one of its writes was short: the frame behind is read
// with it as one, and its type then comes out of audio.
TEST_F(FrameReaderTest, AfterATornFrameTheOnesBehindItAreFound) {
    for (size_t torn = 1; torn < 324; ++torn) {
        SCOPED_TRACE(torn);
        frames_.clear();
        losses_.clear();
        read(sounding(1) + sounding(2).substr(0, torn) + soundingFrames(3, 9));
        reader_.end();
        // The torn one is filled up from the next, or dropped with it; all behind it are whole.
        ASSERT_GE(frames_.size(), 7U);
        ASSERT_LE(frames_.size(), 8U);
        const std::vector<std::string> last(frames_.end() - 6, frames_.end());
        ASSERT_THAT(last, ElementsAre(sounding(4), sounding(5), sounding(6), sounding(7),
                                      sounding(8), sounding(9)));
        ASSERT_EQ(losses_.size(), 1U);
        ASSERT_EQ(frames_.size() * 324 + losses_[0], 8 * 324 + torn);
    }
}

TEST_F(FrameReaderTest, TheSameLossWhateverTheCuts) {
    const std::string stream = sounding(1) + sounding(2).substr(0, 100) + soundingFrames(3, 8) +
                               std::string(50, 'x') + soundingFrames(9, 12) + std::string(7, 'y');
    read(stream);
    reader_.end();
    const auto frames = frames_;
    const auto losses = losses_;
    const auto reasons = reasons_;
    ASSERT_EQ(losses.size(), 3U);
    for (const size_t size : {1U, 2U, 3U, 7U, 100U, 323U, 324U, 325U, 648U, 1000U}) {
        frames_.clear();
        losses_.clear();
        reasons_.clear();
        readInPieces(stream, size);
        reader_.end();
        EXPECT_EQ(frames_, frames) << size;
        EXPECT_EQ(losses_, losses) << size;
        EXPECT_EQ(reasons_, reasons) << size;
    }
}

TEST_F(FrameReaderTest, AFrameOfUnknownTypeIsDroppedAndItsTypeTold) {
    for (const int32_t type : {3, 4, 5, 6, 7, 8, 11, -1, -2, 256, 0x01000000, 0x7FFFFFFF}) {
        SCOPED_TRACE(type);
        frames_.clear();
        losses_.clear();
        read(sounding(1) + sounding(2, type) + soundingFrames(3, 6));
        EXPECT_THAT(frames_,
                    ElementsAre(sounding(1), sounding(3), sounding(4), sounding(5), sounding(6)));
        EXPECT_THAT(losses_, ElementsAre(324U));
        EXPECT_THAT(reasons_.back(), HasSubstr(std::to_string(type) + " "));
    }
}

TEST_F(FrameReaderTest, TwoTypesInARowAreNotEnoughForAPlace) {
    const std::string strange = sounding(2, 5);
    std::string chance = sounding(3, 5);
    chance.replace(100, 4, std::string(4, '\0'));  // a type, were this a frame's beginning,
    std::string next = sounding(4, 6);
    next.replace(100, 4, std::string(4, '\0'));  // and one more
    read(sounding(1) + strange + chance + next + soundingFrames(5, 7));
    EXPECT_THAT(frames_, ElementsAre(sounding(1), sounding(5), sounding(6), sounding(7)));
    EXPECT_THAT(losses_, ElementsAre(3 * 324U));
}

TEST_F(FrameReaderTest, FramesAreHandedOnAsSoonAsThreeTypesAreThere) {
    read(std::string(324, 'x') + sounding(1) + sounding(2) + sounding(3).substr(0, 3));
    EXPECT_THAT(frames_, IsEmpty());
    read(sounding(3).substr(3, 1));
    EXPECT_THAT(frames_, ElementsAre(sounding(1), sounding(2)));
    EXPECT_THAT(losses_, ElementsAre(324U));
}

// In digital silence every place looks like a frame's beginning. It is taken for one, and the next
// sound tells that it was none.
TEST_F(FrameReaderTest, SilenceBehindALossIsCorrectedByTheNextSound) {
    std::string silence;
    for (int i = 0; i < 20; ++i)
        silence += marker(DATA);
    read(sounding(1) + std::string(100, 'x') + silence + soundingFrames(2, 9));
    reader_.end();
    const std::vector<std::string> last(frames_.end() - 7, frames_.end());
    EXPECT_THAT(last, ElementsAre(sounding(3), sounding(4), sounding(5), sounding(6), sounding(7),
                                  sounding(8), sounding(9)));
    size_t lost = 0;
    for (const size_t bytes : losses_)
        lost += bytes;
    EXPECT_EQ(frames_.size() * 324 + lost, 29 * 324U + 100);
}

TEST_F(FrameReaderTest, NoiseWithoutFramesIsAllLossAndKeepsNoBytes) {
    for (int i = 0; i < 1000; ++i)
        read(std::string(1000, 'x'));
    EXPECT_THAT(frames_, IsEmpty());
    reader_.end();
    EXPECT_THAT(losses_, ElementsAre(1000000U));
    EXPECT_THAT(reasons_, ElementsAre(HasSubstr("no type")));
}

TEST_F(FrameReaderTest, EachSearchIsALossOfItsOwn) {
    read(soundingFrames(1, 3) + std::string(10, 'x') + soundingFrames(4, 8) + std::string(20, 'x') +
         soundingFrames(9, 13));
    reader_.end();
    // What came before its loss was found looked like a frame: its type was right.
    EXPECT_THAT(losses_, ElementsAre(10U, 20U));
    EXPECT_EQ(frames_.size(), 13U);
}

TEST(Frame, TypeIsLeastSignificantByteFirst) {
    node::Frame frame;
    frame.bytes[0] = static_cast<char>(0xFE);
    frame.bytes[1] = frame.bytes[2] = frame.bytes[3] = static_cast<char>(0xFF);
    EXPECT_EQ(frame.type(), -2);
    frame.bytes = {0x12, 0x34, 0x56, 0x78};
    EXPECT_EQ(frame.type(), 0x78563412);
}

TEST(Frame, AudioIsWhatStandsBehindTheType) {
    const node::Frame frame = frameOf(sounding(5));
    EXPECT_EQ(frame.audio(), soundOf(5));
}

TEST(Frame, TypesOfTheProtocolAreFive) {
    for (const int type : {0, 1, 2, 9, 10})
        EXPECT_TRUE(node::isFrameType(type)) << type;
    for (const int type : {-1, 3, 4, 5, 6, 7, 8, 11, 256})
        EXPECT_FALSE(node::isFrameType(type)) << type;
}

}  // namespace
