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

constexpr int kSampleRateHz = 16000;
constexpr int kFrameMs = 10;
constexpr size_t kFrameSamples = 160;  // 10 ms at 16 kHz
constexpr size_t kResultValues = 25;
constexpr float kFloorDbfs = -100;  // 16-bit samples end at -90 dBFS; a level must be finite

// The C library owns the name EOF, hence the spelled-out names of the last two.
enum FrameType : int32_t {
    kData = 0,
    kStart = 1,           // START: an utterance begins
    kEnd = 2,             // END: an utterance is over
    kTopOfStream = 9,     // TOF
    kBottomOfStream = 10  // EOF
};

enum ResultValue : size_t { kVoiced = 0, kLevel = 1, kNoise = 2, kOpen = 3 };

using Samples = std::array<int16_t, kFrameSamples>;

struct AudioFrame {
    int32_t type = kData;
    Samples samples{};
};
static_assert(sizeof(AudioFrame) == 324);

struct ResultFrame {
    int32_t type = kData;
    std::array<float, kResultValues> values{};
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
