// SPDX-License-Identifier: MIT
// Frames and bytes as a peer would write them, made by hand: no packing code of the bridge is used.
#ifndef TOLVANEV_TESTS_FRAMES_H
#define TOLVANEV_TESTS_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

// Bytes from numbers, so that tables of the byte formats can be written down as they are.
inline std::vector<char> bytesOf(std::initializer_list<unsigned> values) {
    std::vector<char> bytes;
    for (const unsigned value : values)
        bytes.push_back(static_cast<char>(value));
    return bytes;
}

inline std::vector<char> bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

// A frame: the type as 4 bytes, least significant first, then the payload as it stands.
inline std::vector<char> frameWith(int32_t type, std::string_view payload) {
    std::vector<char> frame;
    for (unsigned shift = 0; shift < 32; shift += 8)
        frame.push_back(static_cast<char>(static_cast<uint32_t>(type) >> shift & 0xFF));
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

// A frame whose payload bytes are all the same; 320 bytes is an audio frame, 100 one of the VAD.
inline std::vector<char> makeFrame(int32_t type, size_t payload_size = 320, char fill = 0) {
    return frameWith(type, std::string(payload_size, fill));
}

#endif
