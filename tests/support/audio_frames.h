// SPDX-License-Identifier: MIT
// Audio frames told apart by their numbers: the first sample. "9:0 0:1" is a TOF frame that holds 0
// and a data frame that holds 1.
#ifndef TOLVANEV_TESTS_AUDIO_FRAMES_H
#define TOLVANEV_TESTS_AUDIO_FRAMES_H

#include <cstdint>
#include <string>
#include <vector>

#include "frames.h"

constexpr size_t SAMPLES = 160;

// Sample `first`, then 159 times `rest`.
inline std::vector<char> audioFrame(int32_t type, int first, int rest = 0) {
    std::string payload;
    for (size_t i = 0; i < SAMPLES; ++i) {
        const auto sample = static_cast<uint16_t>(i == 0 ? first : rest);
        payload += static_cast<char>(sample & 0xFF);
        payload += static_cast<char>(sample >> 8);
    }
    return frameWith(type, payload);
}

inline int typeOf(const std::vector<char>& frame) {
    uint32_t type = 0;
    for (size_t i = 0; i < 4; ++i)
        type |= static_cast<uint32_t>(static_cast<unsigned char>(frame.at(i))) << 8 * i;
    return static_cast<int>(type);
}

inline int sampleOf(const std::vector<char>& frame, size_t index = 0) {
    const auto low = static_cast<unsigned char>(frame.at(4 + 2 * index));
    const auto high = static_cast<unsigned char>(frame.at(5 + 2 * index));
    return static_cast<int16_t>(low | high << 8);
}

inline std::string described(const std::vector<char>& frame) {
    return std::to_string(typeOf(frame)) + ":" + std::to_string(sampleOf(frame));
}

// Takes frames from take(frame) until it returns false.
template <typename Take>
std::string describedAll(Take take) {
    std::string text;
    for (std::vector<char> frame; take(frame);)
        text += (text.empty() ? "" : " ") + described(frame);
    return text;
}

#endif
