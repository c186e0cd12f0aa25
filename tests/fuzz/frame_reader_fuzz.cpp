// SPDX-License-Identifier: MIT
// Any bytes from the bridge, in any cuts. The first byte tells the cuts: pieces of so many bytes,
// or the whole for 0. The frames and losses are those of a second reader, which has all bytes at
// once and finds its way by positions; no byte is counted twice or not at all.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "FrameReader.h"
#include "fuzz.h"

namespace {

struct Heard {
    std::string frames;  // one after the other
    std::vector<size_t> losses;
    bool operator==(const Heard& other) const {
        return frames == other.frames && losses == other.losses;
    }
};

// True where the four bytes are a type: 0, 1, 2, 9 or 10.
bool isType(std::string_view bytes) {
    return std::string_view("\0\1\2\x09\x0A", 5).find(bytes[0]) != bytes.npos &&
           bytes.substr(1, 3) == std::string_view("\0\0\0", 3);
}

// The first place from here on that three types in a row confirm; npos when there is none.
size_t placeFrom(size_t from, std::string_view bytes) {
    for (size_t at = from; at + 652 <= bytes.size(); ++at) {
        if (isType(bytes.substr(at)) && isType(bytes.substr(at + 324)) &&
            isType(bytes.substr(at + 648)))
            return at;
    }
    return bytes.npos;
}

Heard expected(std::string_view bytes) {
    Heard heard;
    size_t at = 0;
    while (at + 324 <= bytes.size()) {
        if (isType(bytes.substr(at))) {
            heard.frames += bytes.substr(at, 324);
            at += 324;
            continue;
        }
        const size_t place = placeFrom(at, bytes);
        if (place == bytes.npos)
            break;
        heard.losses.push_back(place - at);
        at = place;
    }
    if (at < bytes.size())
        heard.losses.push_back(bytes.size() - at);
    return heard;
}

Heard readInPieces(std::string_view bytes, size_t piece) {
    Heard heard;
    node::FrameReader reader(
        [&heard](const node::Frame& frame) {
            heard.frames.append(frame.bytes.begin(), frame.bytes.end());
        },
        [&heard](size_t count, const std::string& reason) {
            REQUIRE(count > 0);
            REQUIRE(!reason.empty());
            heard.losses.push_back(count);
        });
    for (size_t at = 0; at < bytes.size(); at += piece)
        reader.read(bytes.substr(at, piece));
    reader.end();
    return heard;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::string bytes(data + 1, data + size);
    const Heard heard = readInPieces(bytes, data[0] == 0 ? bytes.size() + 1 : data[0]);
    REQUIRE(heard == expected(bytes));
    size_t total = heard.frames.size();
    for (const size_t loss : heard.losses)
        total += loss;
    REQUIRE(total == bytes.size());
    return 0;
}
