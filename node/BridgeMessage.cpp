// SPDX-License-Identifier: MIT
#include "BridgeMessage.h"

#include <string_view>
#include <utility>

namespace node {

namespace {

constexpr std::string_view PATTERN = "- 00:00:00.000 ";  // '0' is any digit

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

}  // namespace

Message parseBridgeLine(const std::string& line) {
    std::string_view text = line;
    // A line that was begun without a line feed may have a whole one behind it.
    while (text.ends_with(' ') || text.ends_with('\r'))
        text.remove_suffix(1);
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

bool saysConnected(const std::string& text) {
    return text.find("[Connected]") != std::string::npos;
}

}  // namespace node
