// SPDX-License-Identifier: MIT
// Byte order: least significant first.
#include "Wav.h"

namespace node {

namespace {

constexpr uint32_t SAMPLE_SIZE = 2;   // bytes
constexpr uint32_t FORMAT_SIZE = 16;  // bytes of the format chunk behind its size
constexpr uint32_t RIFF_REST = 36;    // bytes of the header behind the first size
constexpr uint32_t PCM_AND_MONO = 1 | 1 << 16;
constexpr uint32_t BLOCK_AND_BITS = SAMPLE_SIZE | 8 * SAMPLE_SIZE << 16;

void append(std::string& bytes, uint32_t value) {
    for (int i = 0; i < 4; ++i, value >>= 8)
        bytes.push_back(static_cast<char>(value & 0xff));
}

}  // namespace

std::string wavImage(const Utterance& utterance) {
    const auto size = static_cast<uint32_t>(utterance.audio.size());
    std::string image;
    image.reserve(WAV_HEADER_SIZE + size);
    image += "RIFF";
    append(image, RIFF_REST + size);
    image += "WAVEfmt ";
    append(image, FORMAT_SIZE);
    append(image, PCM_AND_MONO);
    append(image, SAMPLE_RATE);
    append(image, SAMPLE_RATE * SAMPLE_SIZE);
    append(image, BLOCK_AND_BITS);
    image += "data";
    append(image, size);
    image += utterance.audio;
    return image;
}

}  // namespace node
