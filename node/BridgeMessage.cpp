// SPDX-License-Identifier: MIT
#include "BridgeMessage.h"

#include <string_view>
#include <utility>

namespace node {

namespace {

constexpr std::string_view CONNECTING = "Connecting to Server ... ";  // without a line feed
constexpr std::string_view PATTERN = "- 00:00:00.000 ";               // '0' is any digit

bool beginsWithTime(std::string_view line) {
    if (line.size() < PATTERN.size())
        return false;
    for (size_t i = 0; i < PATTERN.size(); ++i) {
        const bool fits =
            PATTERN[i] == '0' ? line[i] >= '0' && line[i] <= '9' : line[i] == PATTERN[i];
        if (!fits)
            return false;
    }
    return true;
}

// Texts of the main loop that tell of an end carry the class of the error in brackets.
Level levelOf(std::string_view text) {
    return text.find("Error] ") != text.npos || text.starts_with("[FATAL]") ? Level::ERROR
                                                                            : Level::INFO;
}

Message parseOne(std::string_view text) {
    if (!beginsWithTime(text))
        return {levelOf(text), true, std::string(text)};
    text.remove_prefix(PATTERN.size());
    constexpr std::pair<std::string_view, Level> TAGS[] = {{"ERROR: ", Level::ERROR},
                                                           {"WARNING: ", Level::WARNING},
                                                           {"INFO: ", Level::INFO},
                                                           {"DEBUG: ", Level::DEBUG}};
    for (const auto& [tag, level] : TAGS) {
        if (text.starts_with(tag))
            return {level, true, std::string(text.substr(tag.size()))};
    }
    return {Level::INFO, true, std::string(text)};
}

}  // namespace

std::vector<Message> parseBridgeLine(const std::string& line) {
    std::string_view text = line;
    while (text.ends_with(' ') || text.ends_with('\r'))
        text.remove_suffix(1);
    if (text.empty())
        return {};
    if (text.starts_with(CONNECTING) && beginsWithTime(text.substr(CONNECTING.size())))
        return {parseOne(text.substr(0, CONNECTING.size() - 1)),
                parseOne(text.substr(CONNECTING.size()))};
    return {parseOne(text)};
}

bool saysConnected(const std::string& text) {
    return text.find("[Connected]") != std::string::npos;
}

}  // namespace node
