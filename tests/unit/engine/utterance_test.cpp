// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Utterance.h"
#include "VadStage.h"

namespace {

// Voiced if and only if the first sample is not 0, and clear if it is above 1000; sunk by so many
// tenths as the second says. Counts its resets.
class ScriptedActivity : public engine::VoiceActivity {
  public:
    explicit ScriptedActivity(int& resets) : resets_(resets) {}
    engine::Finding examine(const engine::Samples& samples, bool open) override {
        opened += open ? '1' : '0';
        engine::Finding finding;
        finding.voiced = samples[0] != 0;
        finding.clear = samples[0] > 1000;
        finding.sunk = static_cast<float>(samples[1]) / 10;
        return finding;
    }
    void reset() override { ++resets_; }

    std::string opened;  // what it was told about each frame

  private:
    int& resets_;
};

char symbolOf(int32_t type) {
    switch (type) {
        case engine::FRAME_DATA:
            return '.';
        case engine::FRAME_START:
            return 'S';
        case engine::FRAME_END:
            return 'E';
        case engine::FRAME_TOF:
            return '<';
        case engine::FRAME_EOF:
            return '>';
        default:
            return '?';
    }
}

// Streams are written as text. In: v clearly voiced, w hardly voiced, u unvoiced, s unvoiced and
// sunk, h sunk by half, < TOF, > EOF, 1 and 2 as the type says, x an unknown type. Out: . data, S
// START, E END, < TOF, > EOF.
class EngineUtterance : public testing::Test {
  protected:
    // Onset 3 frames, hangover 2, both of them unless a test says otherwise.
    std::string answer(const std::string& input, int lookback_frames = 0, bool finish = true) {
        engine::VadSettings settings;
        settings.onset_frames = 3;
        settings.hangover_frames = 2;
        settings.long_hangover_frames = long_hangover_frames_;
        settings.early_frames = early_frames_;
        settings.lookback_frames = lookback_frames;
        const auto collect = [this](std::span<const std::byte> bytes) {
            ASSERT_EQ(bytes.size(), sizeof(engine::ResultFrame));
            std::memcpy(&out_.emplace_back(), bytes.data(), bytes.size());
        };
        out_.clear();
        auto activity = std::make_unique<ScriptedActivity>(resets_);
        const ScriptedActivity& told = *activity;
        engine::VadStage stage(settings, std::move(activity), collect);
        for (const char symbol : input)
            stage.accept(frameOf(symbol));
        opened_ = told.opened;
        if (finish)
            stage.finish();
        std::string text;
        for (const auto& frame : out_)
            text += symbolOf(frame.type);
        return text;
    }

    static engine::AudioFrame frameOf(char symbol) {
        engine::AudioFrame frame;
        frame.samples[0] = symbol == 'v' ? 2000 : symbol == 'w' ? 1000 : 0;
        frame.samples[1] = symbol == 's' ? 10 : symbol == 'h' ? 5 : 0;
        const std::string types = "<>12x";
        constexpr int32_t numbers[] = {engine::FRAME_TOF, engine::FRAME_EOF, engine::FRAME_START,
                                       engine::FRAME_END, 77};
        if (const size_t index = types.find(symbol); index != std::string::npos)
            frame.type = numbers[index];
        return frame;
    }

    // Which of the frames that came out have the utterance open.
    std::string openFlags() const {
        std::string text;
        for (const auto& frame : out_)
            text += frame.values[engine::OPEN] == 1.0f ? '1' : '0';
        return text;
    }

    std::vector<engine::ResultFrame> out_;
    int resets_ = 0;
    std::string opened_;
    int long_hangover_frames_ = 2;
    int early_frames_ = 0;
};

TEST_F(EngineUtterance, StartStandsBeforeTheFrameAtWhichSpeechIsDeclared) {
    EXPECT_EQ(answer("<uvvv"), "<...S.");
}

TEST_F(EngineUtterance, TooShortARunDeclaresNothing) {
    EXPECT_EQ(answer("<vvuvvu"), "<......");
}

TEST_F(EngineUtterance, EndStandsBeforeTheFirstNonSpeechFrame) {
    EXPECT_EQ(answer("<vvvuuu"), "<..S...E.");
    EXPECT_EQ(openFlags(), "000111100");
}

TEST_F(EngineUtterance, VoicedFrameRenewsTheHangover) {
    EXPECT_EQ(answer("<vvvuuvuuu"), "<..S......E.");
}

TEST_F(EngineUtterance, VoiceThatBreaksOffIsWaitedForLonger) {
    long_hangover_frames_ = 4;
    EXPECT_EQ(answer("<vvvuuuuu"), "<..S.....E.");
    EXPECT_EQ(answer("<vvvsss"), "<..S...E.");
}

TEST_F(EngineUtterance, VoiceThatSankALittleIsWaitedForInBetween) {
    long_hangover_frames_ = 6;
    EXPECT_EQ(answer("<vvvhhhhhh"), "<..S.....E..");
}

TEST_F(EngineUtterance, HardlyVoicedFrameTakesFourFramesOffTheSilence) {
    long_hangover_frames_ = 6;
    EXPECT_EQ(answer("<vvvuuuuuwuuuuuuuu"), "<..S............E...");
    EXPECT_EQ(answer("<vvvuwuuuuuuuu"), "<..S.........E..");
}

TEST_F(EngineUtterance, HardlyVoicedFramesInARowDeclareSpeech) {
    EXPECT_EQ(answer("<uwwwu"), "<...S..");
}

TEST_F(EngineUtterance, YoungUtteranceHasTheLongHangover) {
    long_hangover_frames_ = 4;
    early_frames_ = 2;
    EXPECT_EQ(answer("<vvvvsssss"), "<..S......E.");
    EXPECT_EQ(answer("<vvvvvsss"), "<..S.....E.");
}

TEST_F(EngineUtterance, EachUtteranceIsYoungAtItsBeginning) {
    long_hangover_frames_ = 4;
    early_frames_ = 1;
    EXPECT_EQ(answer("<vvvvsssvvvsssss"), "<..S....E...S.....E.");
}

TEST_F(EngineUtterance, DetectorIsToldWhetherAnUtteranceIsOpen) {
    answer("<vvvvuuuu");
    EXPECT_EQ(opened_, "00011110");
}

TEST_F(EngineUtterance, EofWithSpeechOpenIsPrecededByEnd) {
    EXPECT_EQ(answer("<vvv>"), "<..S.E>");
    EXPECT_EQ(openFlags(), "0001100");
}

TEST_F(EngineUtterance, EofWithSpeechClosedStandsAlone) {
    EXPECT_EQ(answer("<vvvuuu>"), "<..S...E.>");
    EXPECT_EQ(answer("<vv>>"), "<..>>");
}

TEST_F(EngineUtterance, NothingIsAddedBeforeTof) {
    EXPECT_EQ(answer("<vvv<uuuu"), "<..S.<....");
}

TEST_F(EngineUtterance, CountsDoNotSurviveTof) {
    EXPECT_EQ(answer("<vv<vvv"), "<..<..S.");
}

TEST_F(EngineUtterance, CountsDoNotSurviveEof) {
    EXPECT_EQ(answer("<vv>vvv"), "<..>..S.");
}

TEST_F(EngineUtterance, TofResetsTheDetectorAndEofDoesNot) {
    answer("<uu>uu<");
    EXPECT_EQ(resets_, 2);
}

TEST_F(EngineUtterance, OtherTypesAreAnsweredWithData) {
    EXPECT_EQ(answer("<12xu"), "<....");
}

TEST_F(EngineUtterance, OtherTypesChangeNoCount) {
    EXPECT_EQ(answer("<vv1v2u1u2ux"), "<...S......E..");
}

TEST_F(EngineUtterance, EveryFrameIsAnsweredAtOnceWithoutLookBack) {
    EXPECT_EQ(answer("<uu", 0, false), "<..");
}

TEST_F(EngineUtterance, LookBackMovesStartAheadOfHeldFrames) {
    EXPECT_EQ(answer("<uuvvvu", 2), "<..S....");
    EXPECT_EQ(openFlags(), "00011111");
}

TEST_F(EngineUtterance, LookBackHoldsExactlyItsDepth) {
    EXPECT_EQ(answer("<uuuuu", 2, false), "<...");
    EXPECT_EQ(answer("<uuuuu", 2, true), "<.....");
}

TEST_F(EngineUtterance, StartNeverOvertakesAHeldEnd) {
    EXPECT_EQ(answer("<vvvuuuvvv", 8), "<S.....E.S...");
}

TEST_F(EngineUtterance, HeldFramesLeaveBeforeEofAndTof) {
    EXPECT_EQ(answer("<uuvvv>", 3, false), "<.S....E>");
    EXPECT_EQ(answer("<uuu<", 3, false), "<...<");
}

// Every stream of four kinds of frames up to length 9, with and without look-back.
TEST_F(EngineUtterance, StartAndEndAlternateAndNoFrameIsLostInAnyShortStream) {
    constexpr int LENGTH = 9;
    for (int code = 0; code < 1 << (2 * LENGTH); code += 3) {
        std::string input;
        for (int position = 0; position < LENGTH; ++position)
            input += "vu<>"[code >> (2 * position) & 3];
        std::string expected;
        for (const char symbol : input)
            expected += symbol == 'v' || symbol == 'u' ? '.' : symbol;
        std::string seen;
        bool open = false;
        for (const char symbol : answer(input, code % 4)) {
            if (symbol == 'S' || symbol == 'E') {
                ASSERT_EQ(open, symbol == 'E') << input;
                open = symbol == 'S';
                continue;
            }
            if (symbol == '>') {
                ASSERT_FALSE(open) << input;
            }
            if (symbol == '<')
                open = false;
            seen += symbol;
        }
        ASSERT_EQ(seen, expected) << input;
    }
}

}  // namespace
