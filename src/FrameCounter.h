// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_FRAMECOUNTER_H
#define TOLVANEV_FRAMECOUNTER_H

#include <cstdint>
#include <string>
#include <vector>

// Counts frames by type, for the log. Whoever reads a stream keeps one and feeds it every frame.
// Waits for nothing; throws std::invalid_argument for a frame that is too short for a header.
class FrameCounter {
  public:
    // Counts the frame by its 4-byte little-endian header; returns the header.
    int count(const std::vector<char>& frame);
    // Kept: the count of unknown types keeps growing across resets.
    void reset();
    // "data:120 start:1 end:1 tof:1 eof:1 unknown:0".
    // Kept: this order is not the order of the fields.
    std::string str();

    uint64_t data = 0;
    uint64_t eof = 0;
    uint64_t tof = 0;
    uint64_t start = 0;
    uint64_t end = 0;
    uint64_t unknown = 0;
};

#endif
