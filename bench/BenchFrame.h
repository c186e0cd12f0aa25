// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_BENCH_BENCHFRAME_H
#define TOLVANEV_BENCH_BENCHFRAME_H

#include <array>
#include <cstdint>
#include <cstring>

#include "common.h"

// The flood's audio: the first two samples of a data frame hold its number, from 1 on, the others
// follow from it, so that every returned frame tells where it belongs and whether it is whole.
constexpr size_t SAMPLES = framesync::MMSE_DATA_SIZE / sizeof(int16_t);

struct BenchFrame {
    int32_t type = FRAME_DATA;
    std::array<int16_t, SAMPLES> samples{};

    bool operator==(const BenchFrame&) const = default;
};
static_assert(sizeof(BenchFrame) == framesync::MMSE_FRAME_SIZE);

inline BenchFrame numbered(uint32_t number) {
    BenchFrame frame;
    for (size_t i = 2; i < SAMPLES; ++i)  // wraps around, on purpose
        frame.samples[i] = static_cast<int16_t>(number * 31 + static_cast<uint32_t>(i) * 521);
    std::memcpy(frame.samples.data(), &number, sizeof(number));
    return frame;
}

// 0 for a frame of silence.
inline uint32_t numberOf(const BenchFrame& frame) {
    uint32_t number;
    std::memcpy(&number, frame.samples.data(), sizeof(number));
    return number;
}

// From most significant byte first to the host's order.
inline void swapBytes(BenchFrame& frame) {
    frame.type = static_cast<int32_t>(__builtin_bswap32(static_cast<uint32_t>(frame.type)));
    for (int16_t& sample : frame.samples)
        sample = static_cast<int16_t>(__builtin_bswap16(static_cast<uint16_t>(sample)));
}

#endif
