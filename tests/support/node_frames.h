// SPDX-License-Identifier: MIT
// Frames as the bridge writes them for the node, made by hand. Their audio tells frames apart, and
// no four bytes of it look like a type.
#ifndef TOLVANEV_TESTS_NODE_FRAMES_H
#define TOLVANEV_TESTS_NODE_FRAMES_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Frame.h"
#include "frames.h"

constexpr int32_t DATA = 0;
constexpr int32_t START = 1;
constexpr int32_t END = 2;
constexpr int32_t TOF = 9;
constexpr int32_t EOF_FRAME = 10;

// The 320 bytes of audio of the frame with this number, which stands in it.
inline std::string soundOf(unsigned number) {
    const std::string digits = std::to_string(number);
    std::string audio = std::string(8 - digits.size(), '0') + digits;
    for (unsigned i = 8; i < 320; ++i)
        audio.push_back(static_cast<char>('!' + (number * 7 + i + i / 89) % 89));
    return audio;
}

// The numbers of the frames that this audio is: "11-30 35-40"; "?" where it is none.
inline std::string numbersIn(const std::string& audio) {
    std::string text;
    unsigned last = 0;
    bool range = false;
    for (size_t at = 0; at < audio.size(); at += 320) {
        const std::string piece = audio.substr(at, 320);
        const auto number =
            static_cast<unsigned>(std::strtoul(piece.substr(0, 8).c_str(), nullptr, 10));
        if (piece != soundOf(number))
            return text + " ?";
        if (at == 0 || number != last + 1) {
            if (range)
                text += "-" + std::to_string(last);
            text += (at == 0 ? "" : " ") + std::to_string(number);
            range = false;
        } else {
            range = true;
        }
        last = number;
    }
    return range ? text + "-" + std::to_string(last) : text;
}

// The 324 bytes of a frame.
inline std::string bytesOfFrame(int32_t type, const std::string& audio) {
    const std::vector<char> bytes = frameWith(type, audio);
    return {bytes.begin(), bytes.end()};
}

inline std::string sounding(unsigned number, int32_t type = DATA) {
    return bytesOfFrame(type, soundOf(number));
}

inline std::string marker(int32_t type) {
    return bytesOfFrame(type, std::string(320, '\0'));
}

inline node::Frame frameOf(const std::string& bytes) {
    node::Frame frame;
    std::copy_n(bytes.begin(), std::min(bytes.size(), frame.bytes.size()), frame.bytes.begin());
    return frame;
}

#endif
