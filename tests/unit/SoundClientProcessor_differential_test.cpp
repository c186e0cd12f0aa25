// SPDX-License-Identifier: MIT
// The parser remembers where it searched and forgets bytes; a plain parser does neither. Fed with
// the same streams in the same cuts, nobody can tell the two apart.
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "plain_parser.h"
#include "sound_client_fixture.h"
#include "stream_maker.h"

namespace {

// What became of a call, in a word.
template <typename Call>
std::string outcomeOf(Call call) {
    try {
        return call() ? "true" : "false";
    } catch (const std::out_of_range&) {
        return "out of range";
    }
}

class SoundClientProcessorDifferential : public testing::Test {
  protected:
    // Hands the same bytes to both parsers and lets both process them.
    void receive(const std::string& bytes) {
        parser_.addReceiveData(bytesOf(bytes));
        plain_.addReceiveData(bytes);
        compare(outcomeOf([&] { return parser_.process(), true; }),
                outcomeOf([&] { return plain_.process(), true; }));
    }

    // Lets both take blocks off one text for as long as there are any.
    void processText(const std::string& text) {
        std::string src = text;
        std::string plain_src = text;
        std::string outcome = "true";
        while (outcome == "true" && !HasFailure()) {
            compareNextHeader(src);
            outcome = outcomeOf([&] { return parser_.processData(src); });
            compare(outcome, outcomeOf([&] { return plain_.processData(plain_src); }));
            EXPECT_EQ(src, plain_src);
        }
    }

    void compareNextHeader(const std::string& src) {
        size_t pos = 77777;
        size_t plain_pos = 77777;
        EXPECT_EQ(parser_.getNextHeader(src, pos), plain_.getNextHeader(src, plain_pos));
        EXPECT_EQ(pos, plain_pos);
    }

    // Everything that can be seen of the two after a call.
    void compare(const std::string& outcome, const std::string& plain_outcome) {
        const Frames frames = takeFrames(parser_);
        const auto lines = log_.lines();
        EXPECT_EQ(outcome, plain_outcome);
        EXPECT_EQ(parser_.getEpdState(), plain_.getEpdState());
        EXPECT_EQ(frames, plain_.takeFrames());
        EXPECT_EQ(lines, plain_.takeLog());
        log_.forget();
        failed_calls_ += outcome == "out of range";
        frames_ += frames.size();
        waits_ += frames.empty() && !lines.empty();
    }

    void initialize() {
        parser_.initialize();
        plain_.initialize();
    }

    LogCapture log_;
    SoundClientProcessor parser_;
    PlainParser plain_;
    // How often the streams led there: a comparison of nothing with nothing proves nothing.
    size_t failed_calls_ = 0;
    size_t frames_ = 0;
    size_t waits_ = 0;
};

TEST_F(SoundClientProcessorDifferential, EveryCallEqualsThePlainParsers) {
    for (uint32_t seed = 1; seed <= 4000 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        StreamMaker maker(seed);
        const std::string& stream = maker.stream();
        for (size_t at = 0, end = 0; at < stream.size() && !HasFailure(); at = end) {
            end = maker.cutBehind(at);
            receive(stream.substr(at, end - at));
        }
        initialize();
    }
    EXPECT_GT(failed_calls_, 1500U);
    EXPECT_GT(frames_, 15000U);
    EXPECT_GT(waits_, 5000U);
}

TEST_F(SoundClientProcessorDifferential, EveryStepOnATextEqualsThePlainParsers) {
    for (uint32_t seed = 10001; seed <= 14000 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        StreamMaker maker(seed);
        const std::string& stream = maker.stream();
        processText(stream.substr(0, maker.cutBehind(stream.size() / 2)));
    }
    EXPECT_GT(failed_calls_, 100U);
    EXPECT_GT(frames_, 5000U);
    EXPECT_GT(waits_, 500U);
}

}  // namespace
