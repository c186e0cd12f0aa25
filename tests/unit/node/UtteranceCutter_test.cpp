// SPDX-License-Identifier: MIT
#include "UtteranceCutter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "node_frames.h"

namespace {

using node::Cut;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

// Sends markers and numbered frames of sound, ten milliseconds apart, and keeps what is cut.
class UtteranceCutterTest : public testing::Test {
  protected:
    UtteranceCutterTest() { make({}); }
    void make(const node::CutterOptions& options) {
        cutter_ = std::make_unique<node::UtteranceCutter>(
            options, [this](const node::SpeechEdge& edge) { edges_.push_back(edge); },
            [this](const node::UtterancePtr& utterance) { cut_.push_back(utterance); });
        cutter_->beginRun(1);
    }
    void take(const std::string& bytes) {
        pass(milliseconds(10));
        cutter_->take(frameOf(bytes), now_, wall_);
    }
    void mark(int32_t type) { take(marker(type)); }
    void say(unsigned first, unsigned last) {  // frames with these numbers
        for (unsigned n = first; n <= last; ++n)
            take(sounding(n));
    }
    void pass(milliseconds time) {
        now_ += time;
        wall_ += time;
    }
    std::vector<bool> edges() const {
        std::vector<bool> all;
        for (const node::SpeechEdge& edge : edges_)
            all.push_back(edge.begins);
        return all;
    }
    std::vector<Cut> cuts() const {
        std::vector<Cut> all;
        for (const auto& utterance : cut_)
            all.push_back(utterance->cut);
        return all;
    }

    node::Clock::time_point now_{std::chrono::hours(5)};
    node::SystemTime wall_{std::chrono::hours(450000)};
    std::vector<node::SpeechEdge> edges_;
    std::vector<node::UtterancePtr> cut_;
    std::unique_ptr<node::UtteranceCutter> cutter_;
};

TEST_F(UtteranceCutterTest, AnUtteranceIsWhatStandsBetweenStartAndEnd) {
    make({milliseconds(0), milliseconds(60000)});
    say(1, 5);
    mark(START);
    EXPECT_TRUE(cutter_->open());
    say(6, 9);
    EXPECT_THAT(cut_, IsEmpty());
    mark(END);
    say(10, 12);
    ASSERT_EQ(cut_.size(), 1U);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "6-9");
    EXPECT_EQ(cut_[0]->preroll, 0U);
    EXPECT_EQ(cut_[0]->cut, Cut::END);
    EXPECT_EQ(cut_[0]->seconds(), 0.04);
    EXPECT_FALSE(cutter_->open());
}

TEST_F(UtteranceCutterTest, TwoHundredMillisecondsFromBeforeStartBelongToIt) {
    say(1, 50);
    mark(START);
    say(51, 60);
    mark(END);
    ASSERT_EQ(cut_.size(), 1U);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "31-60");
    EXPECT_EQ(cut_[0]->preroll, 20 * 320U);
}

TEST_F(UtteranceCutterTest, PrerollIsWhatThereIsWhenThatIsLess) {
    say(1, 7);
    mark(START);
    say(8, 9);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-9");
    EXPECT_EQ(cut_[0]->preroll, 7 * 320U);
}

TEST_F(UtteranceCutterTest, PrerollMayBeExactlyWhatThereIs) {
    say(1, 20);
    mark(START);
    say(21, 21);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-21");
    EXPECT_EQ(cut_[0]->preroll, 20 * 320U);
}

TEST_F(UtteranceCutterTest, AStartAtTheVeryBeginningHasNoPreroll) {
    mark(START);
    say(1, 3);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-3");
    EXPECT_EQ(cut_[0]->preroll, 0U);
    EXPECT_EQ(cut_[0]->first_frame, 0U);
}

TEST_F(UtteranceCutterTest, NoAudioIsInTwoUtterances) {
    say(1, 30);
    mark(START);
    say(31, 40);
    mark(END);
    say(41, 45);
    mark(START);
    say(46, 50);
    mark(END);
    ASSERT_EQ(cut_.size(), 2U);
    EXPECT_EQ(numbersIn(cut_[1]->audio), "41-50");
    EXPECT_EQ(cut_[1]->preroll, 5 * 320U);
}

TEST_F(UtteranceCutterTest, EdgesTellFrameRunAndTime) {
    cutter_->beginRun(7);
    say(1, 25);
    mark(START);
    const auto began = wall_;
    say(26, 35);
    mark(END);
    const auto ended = wall_;
    ASSERT_THAT(edges(), ElementsAre(true, false));
    EXPECT_EQ(edges_[0].run, 7U);
    EXPECT_EQ(edges_[0].frame, 25U);
    EXPECT_EQ(edges_[0].time, began);
    EXPECT_EQ(edges_[1].frame, 35U);
    EXPECT_EQ(edges_[1].time, ended);
    EXPECT_EQ(cut_[0]->run, 7U);
    EXPECT_EQ(cut_[0]->first_frame, 25U);
    EXPECT_EQ(cut_[0]->start, began);
    EXPECT_EQ(cut_[0]->end, ended);
}

TEST_F(UtteranceCutterTest, UtterancesAreCountedFromOneOverAllRuns) {
    for (uint64_t run = 1; run <= 3; ++run) {
        cutter_->beginRun(run);
        mark(START);
        say(1, 2);
        mark(END);
        cutter_->endRun(wall_);
    }
    ASSERT_EQ(cut_.size(), 3U);
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(cut_[i]->number, i + 1);
        EXPECT_EQ(cut_[i]->run, i + 1);
        EXPECT_EQ(cut_[i]->first_frame, 0U);
    }
    EXPECT_EQ(cutter_->count(), 3U);
}

TEST_F(UtteranceCutterTest, AnEndWithoutStartIsNothing) {
    say(1, 5);
    mark(END);
    say(6, 8);
    EXPECT_THAT(cut_, IsEmpty());
    EXPECT_THAT(edges_, IsEmpty());
    mark(START);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-8");  // it cost no audio either
}

TEST_F(UtteranceCutterTest, AStartWithinAnUtteranceBeginsTheNext) {
    say(1, 30);
    mark(START);
    say(31, 40);
    mark(START);
    say(41, 50);
    mark(END);
    EXPECT_THAT(cuts(), ElementsAre(Cut::STREAM, Cut::END));
    EXPECT_THAT(edges(), ElementsAre(true, false, true, false));
    EXPECT_EQ(numbersIn(cut_[0]->audio), "11-40");
    EXPECT_EQ(numbersIn(cut_[1]->audio), "41-50");
    EXPECT_EQ(cut_[1]->number, 2U);
}

TEST_F(UtteranceCutterTest, EofAndTofEndAnUtterance) {
    for (const int32_t type : {EOF_FRAME, TOF}) {
        make({});
        cut_.clear();
        edges_.clear();
        mark(START);
        say(1, 10);
        mark(type);
        say(11, 15);
        mark(END);
        EXPECT_THAT(cuts(), ElementsAre(Cut::STREAM)) << type;
        EXPECT_THAT(edges(), ElementsAre(true, false)) << type;
        EXPECT_EQ(numbersIn(cut_[0]->audio), "1-10") << type;
    }
}

TEST_F(UtteranceCutterTest, AudioAheadOfAStreamsEndIsNoPreroll) {
    for (const int32_t type : {EOF_FRAME, TOF}) {
        say(1, 30);
        mark(type);
        say(31, 33);
        mark(START);
        mark(END);
        EXPECT_EQ(numbersIn(cut_.back()->audio), "31-33") << type;
    }
}

// A renewal: EOF, TOF, ten frames of averaged noise, which the voice server never sent.
TEST_F(UtteranceCutterTest, TheBridgesOwnNoiseBelongsToNoUtterance) {
    say(1, 30);
    mark(EOF_FRAME);
    mark(TOF);
    say(501, 510);
    say(31, 35);
    mark(START);
    say(36, 40);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "31-40");
    EXPECT_EQ(cut_[0]->preroll, 5 * 320U);
    EXPECT_EQ(cut_[0]->first_frame, 45U);  // though it counts: data frames of this run
}

TEST_F(UtteranceCutterTest, SpeechBeginsWithinTheNoiseWithoutIt) {
    mark(EOF_FRAME);
    mark(TOF);
    say(501, 504);
    mark(START);
    say(505, 510);
    say(1, 5);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-5");
}

TEST_F(UtteranceCutterTest, AVoiceServersOwnMarksHaveNoNoiseBehindThem) {
    for (const auto& marks : {std::vector<int32_t>{EOF_FRAME, DATA, TOF},
                              {TOF},
                              {EOF_FRAME},
                              {TOF, EOF_FRAME},
                              {EOF_FRAME, EOF_FRAME},
                              {EOF_FRAME, END, TOF}}) {
        for (const int32_t type : marks)
            mark(type);
        say(1, 12);
        mark(START);
        say(13, 14);
        mark(END);
        EXPECT_EQ(numbersIn(cut_.back()->audio), "1-14");
    }
}

TEST_F(UtteranceCutterTest, ASecondRenewalAmidTheNoiseOfTheFirstCountsAnew) {
    mark(EOF_FRAME);
    mark(TOF);
    say(501, 503);
    mark(EOF_FRAME);
    mark(TOF);
    say(504, 513);
    say(1, 3);
    mark(START);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-3");
}

TEST_F(UtteranceCutterTest, ASecondWithoutFramesEndsAnUtterance) {
    mark(START);
    say(1, 10);
    pass(milliseconds(1000));
    cutter_->lookForGap(now_, wall_);
    EXPECT_THAT(cut_, IsEmpty());  // not more than a second
    pass(milliseconds(1));
    cutter_->lookForGap(now_, wall_);
    EXPECT_THAT(cuts(), ElementsAre(Cut::GAP));
    EXPECT_THAT(edges(), ElementsAre(true, false));
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-10");
    cutter_->lookForGap(now_, wall_);
    mark(END);
    EXPECT_EQ(cut_.size(), 1U);
}

TEST_F(UtteranceCutterTest, TimeInWhichNobodyLookedIsNoGap) {
    mark(START);
    say(1, 10);
    pass(milliseconds(5000));  // the frames wait in the pipe
    cutter_->excuse(now_);
    say(11, 20);
    mark(END);
    EXPECT_THAT(cuts(), ElementsAre(Cut::END));
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-20");
}

TEST_F(UtteranceCutterTest, TheFrameBehindAGapIsNotInTheUtterance) {
    mark(START);
    say(1, 10);
    pass(milliseconds(5000));
    say(11, 12);
    EXPECT_THAT(cuts(), ElementsAre(Cut::GAP));
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-10");
}

// While EPD is off or a sound plays no frame comes; what was heard minutes ago is not what was said
// just before START.
TEST_F(UtteranceCutterTest, AudioFromBeforeAGapIsNoPreroll) {
    say(1, 30);
    pass(std::chrono::minutes(5));
    say(31, 34);
    mark(START);
    say(35, 36);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "31-36");
    EXPECT_EQ(cut_[0]->preroll, 4 * 320U);
}

TEST_F(UtteranceCutterTest, APauseOfUpToASecondKeepsThePreroll) {
    say(1, 30);
    pass(milliseconds(900));
    mark(START);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "11-30");
}

// The rest of the noise was held back with the frames around it.
TEST_F(UtteranceCutterTest, NoiseThatIsCutShortByAGapCostsNoAudioBehindIt) {
    mark(EOF_FRAME);
    mark(TOF);
    say(501, 503);
    pass(std::chrono::minutes(5));
    say(1, 5);
    mark(START);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-5");
}

TEST_F(UtteranceCutterTest, AnUtteranceThatIsTooLongGoesOnInTheNextWithoutALostSample) {
    make({milliseconds(200), milliseconds(1000)});
    say(1, 30);
    mark(START);
    say(31, 280);
    mark(END);
    EXPECT_THAT(cuts(), ElementsAre(Cut::LENGTH, Cut::LENGTH, Cut::END));
    EXPECT_EQ(numbersIn(cut_[0]->audio), "11-130");  // the preroll is not counted
    EXPECT_EQ(numbersIn(cut_[1]->audio), "131-230");
    EXPECT_EQ(numbersIn(cut_[2]->audio), "231-280");
    EXPECT_EQ(cut_[1]->preroll, 0U);
    EXPECT_EQ(cut_[1]->number, 2U);
    EXPECT_EQ(cut_[1]->first_frame, 130U);
    EXPECT_EQ(cut_[2]->first_frame, 230U);
    EXPECT_THAT(edges(), ElementsAre(true, false));  // nobody stopped speaking in between
}

TEST_F(UtteranceCutterTest, AnUtteranceOfExactlyTheLongestLengthIsOne) {
    make({milliseconds(0), milliseconds(1000)});
    mark(START);
    say(1, 100);
    mark(END);
    EXPECT_THAT(cuts(), ElementsAre(Cut::END));
}

TEST_F(UtteranceCutterTest, TheEndOfARunEndsTheUtterance) {
    mark(START);
    say(1, 10);
    cutter_->endRun(wall_);
    EXPECT_THAT(cuts(), ElementsAre(Cut::RESTART));
    EXPECT_THAT(edges(), ElementsAre(true, false));
    EXPECT_EQ(numbersIn(cut_[0]->audio), "1-10");
    EXPECT_FALSE(cutter_->open());
}

TEST_F(UtteranceCutterTest, TheEndOfARunWithoutAnUtteranceIsNothing) {
    say(1, 10);
    cutter_->endRun(wall_);
    EXPECT_THAT(cut_, IsEmpty());
    EXPECT_THAT(edges_, IsEmpty());
}

TEST_F(UtteranceCutterTest, NothingOfARunReachesIntoTheNext) {
    say(1, 30);
    mark(EOF_FRAME);
    cutter_->endRun(wall_);
    cutter_->beginRun(2);
    mark(TOF);  // the first mark of a new stream, no renewal
    say(31, 35);
    cutter_->endRun(wall_);
    cutter_->beginRun(3);
    say(36, 37);
    mark(START);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[0]->audio), "36-37");
    cutter_->beginRun(4);
    mark(TOF);
    say(38, 39);
    mark(START);
    mark(END);
    EXPECT_EQ(numbersIn(cut_[1]->audio), "38-39");
}

TEST_F(UtteranceCutterTest, CutsHaveNames) {
    EXPECT_STREQ(node::nameOf(Cut::END), "end");
    EXPECT_STREQ(node::nameOf(Cut::STREAM), "stream");
    EXPECT_STREQ(node::nameOf(Cut::GAP), "gap");
    EXPECT_STREQ(node::nameOf(Cut::RESTART), "restart");
    EXPECT_STREQ(node::nameOf(Cut::LENGTH), "length");
}

}  // namespace
