// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_SOUND_CLIENT_FIXTURE_H
#define TOLVANEV_TESTS_SOUND_CLIENT_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "SoundClientProcessor.h"
#include "frames.h"
#include "log_capture.h"

using Frames = std::vector<ReceiveData>;

inline constexpr char CRLF_TWICE[] = "\r\n\r\n";  // what a command is followed by

inline const std::string DATA_LINE = "DEBUG: receive sound client packet : data.";
inline const std::string END_LINE = "DEBUG: receive sound client packet : end.";
inline const std::string CANCEL_LINE = "DEBUG: receive sound client packet : cancel.";
inline const std::string BEGIN_LINE = "DEBUG: receive sound client packet : begin.";
inline const std::string EPD_ON_LINE = "INFO: receive sound client packet : epd_on.";
inline const std::string EPD_OFF_LINE = "INFO: receive sound client packet : epd_off.";

inline std::string command(const std::string& keyword) {
    return keyword + CRLF_TWICE;
}

inline std::string dataBlock(const std::string& payload) {
    return "DATA " + std::to_string(payload.size()) + "\n\n" + payload;
}

// A payload in which every byte tells its place.
inline std::string ramp(size_t size) {
    std::string bytes;
    for (size_t i = 0; i < size; ++i)
        bytes.push_back(static_cast<char>(i % 251));
    return bytes;
}

inline Frames takeFrames(SoundClientProcessor& parser) {
    Frames frames;
    for (ReceiveData frame; parser.getSendData(frame);)
        frames.push_back(frame);
    return frames;
}

// The parser of the sound client's stream as its link uses it: bytes arrive, frames are taken out.
class SoundClientFixture : public testing::Test {
  protected:
    void receive(const std::string& bytes) {
        parser_.addReceiveData(bytesOf(bytes));
        parser_.process();
    }

    // For bytes that end inside the digits of a DATA header.
    bool receiveFails(const std::string& bytes) {
        try {
            receive(bytes);
        } catch (const std::out_of_range&) {
            return true;
        }
        return false;
    }

    Frames frames() { return takeFrames(parser_); }

    // The types of the frames that are waiting, oldest first.
    std::vector<int> types() {
        std::vector<int> result;
        for (const ReceiveData& frame : frames())
            result.push_back(frame.at(0));
        return result;
    }

    // Whether bytes are left: a DATA block is taken at once only behind other bytes.
    bool bytesAreLeft() {
        receive("DATA 1\n\nx");
        return !frames().empty();
    }

    LogCapture log_;
    SoundClientProcessor parser_;
};

#endif
