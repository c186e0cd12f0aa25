// SPDX-License-Identifier: MIT
// Any bytes on the bridge's standard error. The first byte tells the cuts, as for frames. The lines
// are what stands between line feeds, cut at the longest length, and the one or two messages of
// each say nothing that the line did not.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "BridgeMessage.h"
#include "LineReader.h"
#include "fuzz.h"

namespace {

using Lines = std::vector<std::string>;

Lines readInPieces(std::string_view bytes, size_t piece) {
    Lines lines;
    node::LineReader reader([&lines](const std::string& line) { lines.push_back(line); });
    for (size_t at = 0; at < bytes.size(); at += piece) {
        reader.read(bytes.substr(at, piece));
        const size_t end = std::min(at + piece, bytes.size());
        REQUIRE(reader.unfinished() == (bytes[end - 1] != '\n'));
    }
    reader.flush();
    REQUIRE(!reader.unfinished());
    return lines;
}

Lines expected(std::string_view bytes) {
    Lines lines(1);
    for (const char byte : bytes) {
        if (byte == '\n')
            lines.emplace_back();
        else if (lines.back().size() < node::LineReader::LONGEST)
            lines.back() += byte;
    }
    if (lines.back().empty())
        lines.pop_back();
    return lines;
}

// True when the text is the line with pieces left out.
bool isWithin(const std::string& text, const std::string& line) {
    size_t found = 0;
    for (const char byte : line)
        found += found < text.size() && text[found] == byte ? 1 : 0;
    return found == text.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::string bytes(data + 1, data + size);
    const Lines lines = readInPieces(bytes, data[0] == 0 ? bytes.size() + 1 : data[0]);
    REQUIRE(lines == expected(bytes));
    for (const std::string& line : lines) {
        const std::vector<node::Message> messages = node::parseBridgeLine(line);
        REQUIRE(messages.empty() == (line.find_first_not_of(" \r") == line.npos));
        REQUIRE(messages.size() <= 2);
        std::string texts;
        for (const node::Message& message : messages) {
            REQUIRE(message.from_bridge);
            REQUIRE(!message.text.empty());
            texts += message.text;
        }
        REQUIRE(isWithin(texts, line));
        REQUIRE(node::saysConnected(texts) == node::saysConnected(line));
    }
    return 0;
}
