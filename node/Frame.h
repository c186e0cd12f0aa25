// SPDX-License-Identifier: MIT
// A frame as the bridge writes it on its standard output: 324 bytes, the type and 160 samples,
// least significant byte first. Byte tables: docs/protocols.md.
#ifndef TOLVANEV_NODE_FRAME_H
#define TOLVANEV_NODE_FRAME_H

#include <array>
#include <chrono>
#include <cstdint>
#include <string_view>

#include "common.h"

namespace node {

constexpr size_t FRAME_SIZE = framesync::VOICE_SERVER_FRAME_SIZE;  // bytes
constexpr size_t AUDIO_SIZE = framesync::VOICE_SERVER_DATA_SIZE;   // bytes
constexpr unsigned SAMPLE_RATE = 16000;                            // samples a second, mono
constexpr unsigned FRAMES_PER_SECOND = 100;
constexpr std::chrono::milliseconds FRAME_TIME{10};

struct Frame {
    std::array<char, FRAME_SIZE> bytes{};

    int32_t type() const {
        uint32_t value = 0;
        for (size_t i = framesync::HEADER_SIZE; i-- > 0;)
            value = value << 8 | static_cast<uint8_t>(bytes[i]);
        return static_cast<int32_t>(value);
    }
    // 160 samples of 16 bit, least significant byte first, as in a WAV file.
    std::string_view audio() const { return {bytes.data() + framesync::HEADER_SIZE, AUDIO_SIZE}; }
};

// True for the five types that the bridge's protocol has.
constexpr bool isFrameType(int32_t type) {
    return (type >= FRAME_DATA && type <= FRAME_END) || type == FRAME_TOF || type == FRAME_EOF;
}

}  // namespace node

#endif
