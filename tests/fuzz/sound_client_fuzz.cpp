// SPDX-License-Identifier: MIT
// The sound client's stream in arbitrary cuts: frames, EPD state and failures are those of a second
// parser that keeps everything and searches from the front. The first byte seeds the cuts.
#include <random>
#include <stdexcept>
#include <string>

#include "SoundClientProcessor.h"
#include "fuzz.h"
#include "log.h"
#include "plain_parser.h"

namespace {

template <typename Parser>
bool survives(Parser& parser) {
    try {
        parser.process();
        return true;
    } catch (const std::out_of_range&) {
        return false;
    }
}

std::vector<std::vector<char>> takeFrames(SoundClientProcessor& parser) {
    std::vector<std::vector<char>> frames;
    for (std::vector<char> frame; parser.getSendData(frame);)
        frames.push_back(frame);
    return frames;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILELog::ReportingLevel() = logERROR;
    SoundClientProcessor parser;
    PlainParser plain;
    std::minstd_rand chance(size > 0 ? data[0] + 1U : 1U);
    for (size_t at = 1; at < size;) {
        const size_t piece = std::min<size_t>(size - at, 1 + chance() % 64);
        const std::string bytes(reinterpret_cast<const char*>(data) + at, piece);
        parser.addReceiveData({bytes.begin(), bytes.end()});
        plain.addReceiveData(bytes);
        REQUIRE(survives(parser) == survives(plain));
        REQUIRE(takeFrames(parser) == plain.takeFrames());
        REQUIRE(parser.getEpdState() == plain.getEpdState());
        at += piece;
    }
    return 0;
}
