// SPDX-License-Identifier: MIT
// The frames on the engine's pipes, byte for byte. All numbers are little-endian.
//
// In (both roles) and out (mmse), 324 bytes:    int32 type, int16 samples[160]
// Out (vad), 104 bytes:                         int32 type, float32 values[25]
//
//   values[0]      1 if this frame is taken for speech, else 0
//   values[1]      level of the frame above 150 Hz, dBFS (RMS; -100 is the floor)
//   values[2]      estimated level of the background noise above 150 Hz, dBFS
//   values[3]      1 from START up to END, else 0
//   values[4..24]  0
#ifndef TOLVANEV_ENGINE_FRAME_H
#define TOLVANEV_ENGINE_FRAME_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace engine {

// The structures below are read and written as they lie in memory.
static_assert(std::endian::native == std::endian::little, "a big-endian host must swap bytes");

constexpr int SAMPLE_RATE_HZ = 16000;
constexpr int FRAME_MS = 10;
constexpr size_t FRAME_SAMPLES = 160;  // 10 ms at 16 kHz
constexpr size_t RESULT_VALUES = 25;
constexpr float FLOOR_DBFS = -100;  // 16-bit samples end at -90 dBFS; a level must be finite

enum FrameType : int32_t {
    FRAME_DATA = 0,
    FRAME_START = 1,  // an utterance begins
    FRAME_END = 2,    // an utterance is over
    FRAME_TOF = 9,    // start of stream
    FRAME_EOF = 10,   // end of stream
};

enum ResultValue : size_t { VOICED = 0, LEVEL = 1, NOISE = 2, OPEN = 3 };

using Samples = std::array<int16_t, FRAME_SAMPLES>;

struct AudioFrame {
    int32_t type = FRAME_DATA;
    Samples samples{};
};
static_assert(sizeof(AudioFrame) == 324);

struct ResultFrame {
    int32_t type = FRAME_DATA;
    std::array<float, RESULT_VALUES> values{};
};
static_assert(sizeof(ResultFrame) == 104);

// Takes one whole output frame.
using Sink = std::function<void(std::span<const std::byte>)>;

template <typename Frame>
std::span<const std::byte> bytesOf(const Frame& frame) {
    return std::as_bytes(std::span(&frame, 1));
}

}  // namespace engine

#endif
