// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_NUMBEREDFRAME_H
#define TOLVANEV_TESTS_NUMBEREDFRAME_H

#include <array>
#include <cstdint>
#include <cstring>

#include "common.h"

// The flood's audio: the first two samples of a data frame hold its number, from 1 on, the others
// follow from it, so that every returned frame tells where it belongs and whether it is whole.
constexpr size_t SAMPLES = framesync::MMSE_DATA_SIZE / sizeof(int16_t);

struct NumberedFrame {
    int32_t type = FRAME_DATA;
    std::array<int16_t, SAMPLES> samples{};

    bool operator==(const NumberedFrame&) const = default;
};
static_assert(sizeof(NumberedFrame) == framesync::MMSE_FRAME_SIZE);

inline NumberedFrame numbered(uint32_t number) {
    NumberedFrame frame;
    for (size_t i = 2; i < SAMPLES; ++i)  // wraps around, on purpose
        frame.samples[i] = static_cast<int16_t>(number * 31 + static_cast<uint32_t>(i) * 521);
    std::memcpy(frame.samples.data(), &number, sizeof(number));
    return frame;
}

// 0 for a frame of silence.
inline uint32_t numberOf(const NumberedFrame& frame) {
    uint32_t number;
    std::memcpy(&number, frame.samples.data(), sizeof(number));
    return number;
}

// From most significant byte first to the host's order.
inline void swapBytes(NumberedFrame& frame) {
    frame.type = static_cast<int32_t>(__builtin_bswap32(static_cast<uint32_t>(frame.type)));
    for (int16_t& sample : frame.samples)
        sample = static_cast<int16_t>(__builtin_bswap16(static_cast<uint16_t>(sample)));
}

#endif
