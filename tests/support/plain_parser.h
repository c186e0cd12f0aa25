// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_PLAIN_PARSER_H
#define TOLVANEV_TESTS_PLAIN_PARSER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "frames.h"

// The sound client's byte stream parsed a second time, in the plainest way: every byte is kept
// until its block is consumed, every call searches from the front and copies what is left. It is
// slow and unbounded; it is what SoundClientProcessor is measured against.
class PlainParser {
  public:
    void initialize() { *this = PlainParser(); }
    void addReceiveData(const std::string& bytes) { received_ += bytes; }

    // Throws std::out_of_range at a DATA header cut inside its digits; received_ stays then.
    void process() {
        if (received_.empty())
            return;
        std::string src = received_;
        while (processData(src)) {
        }
        received_ = src;
    }

    int getNextHeader(const std::string& src, size_t& pos) const {
        int header = -1;
        size_t earliest = std::string::npos;
        for (const Block& block : blocks()) {
            const size_t found = src.find(block.keyword);
            if (found < earliest) {
                earliest = found;
                header = block.header;
            }
        }
        if (header != -1)
            pos = earliest;
        return header;
    }

    bool processData(std::string& src) {
        size_t pos = 0;
        const int header = getNextHeader(src, pos);
        for (const Block& block : blocks()) {
            if (block.header != header)
                continue;
            log_.push_back(block.log_line);
            if (header == 0)
                return processDataBlock(src, pos);
            processCmdBlock(src, pos, block.keyword + "\n\n");
            for (const int type : block.frames)
                frames_.push_back(makeFrame(type));
            if (header == 5 || header == 6)
                epd_state_ = header == 5;
            return true;
        }
        return false;
    }

    void processCmdBlock(std::string& src, size_t data_pos, const std::string& reference) {
        const std::string block = src.substr(data_pos);
        const size_t behind = reference.size() + 2;
        src = behind <= block.size() ? block.substr(behind) : "";
    }

    bool processDataBlock(std::string& src, size_t data_pos) {
        const std::string block = src.substr(data_pos);
        const size_t gap = block.find_first_of(" \t\r\n");
        const size_t number = block.find_first_not_of(" \t\r\n", gap);
        if (gap == block.npos || number == block.npos)
            return false;  // no number yet
        const size_t number_end =
            std::min(block.find_first_not_of("0123456789", number), block.size());
        if (number_end == number)
            return false;  // never a number
        uint64_t length = 0;
        for (const char digit : block.substr(number, number_end - number)) {
            length = length * 10 + static_cast<uint64_t>(digit - '0');
            if (length > std::numeric_limits<uint32_t>::max())
                return false;  // never a number of 32 bits
        }
        const bool cut = block.size() - number_end < 2;
        const size_t start = cut ? block.npos : number_end + 2;
        const uint32_t available = static_cast<uint32_t>(src.size() - start);
        if (length >= available)
            return false;
        const std::string payload = block.substr(start, length);  // throws when the header is cut
        if (payload.size() < length)
            return false;
        src = block.substr(start + length);
        addDataFrame(payload);
        return true;
    }

    void addDataFrame(const std::string& data) {
        for (size_t i = 0; i < data.size(); i += 320) {
            std::string piece = data.substr(i, 320);
            piece.resize(320);
            frames_.push_back(frameWith(0, piece));
        }
    }

    bool getEpdState() const { return epd_state_; }
    std::vector<std::vector<char>> takeFrames() { return std::exchange(frames_, {}); }
    std::vector<std::string> takeLog() { return std::exchange(log_, {}); }

  private:
    struct Block {
        std::string keyword;
        int header;
        std::string log_line;
        std::vector<int> frames;
    };

    static const std::vector<Block>& blocks() {
        static const std::vector<Block> all = {
            {"DATA", 0, "DEBUG: receive sound client packet : data.", {}},
            {"END", 1, "DEBUG: receive sound client packet : end.", {2, 10}},
            {"CANCEL", 2, "DEBUG: receive sound client packet : cancel.", {2, 10}},
            {"BEGIN", 3, "DEBUG: receive sound client packet : begin.", {9, 1}},
            {"EPD_ON", 5, "INFO: receive sound client packet : epd_on.", {}},
            {"EPD_OFF", 6, "INFO: receive sound client packet : epd_off.", {}}};
        return all;
    }

    std::string received_;
    std::vector<std::vector<char>> frames_;
    std::vector<std::string> log_;  // "LEVEL: message"
    bool epd_state_ = true;
};

#endif
