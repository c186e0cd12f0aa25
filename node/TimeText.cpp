// SPDX-License-Identifier: MIT
#include "TimeText.h"

#include <time.h>

#include <array>
#include <charconv>

namespace node {

namespace {

// With the milliseconds cut off, not rounded: that could be a second that has not come.
std::string formatted(SystemTime time, const char* format) {
    const auto since = std::chrono::floor<milliseconds>(time.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    const time_t whole = seconds.count();
    tm parts{};
    gmtime_r(&whole, &parts);
    std::array<char, 32> text{};
    const size_t length = strftime(text.data(), text.size(), format, &parts);
    const std::string fraction = std::to_string(1000 + (since - seconds).count());
    return std::string(text.data(), length) + '.' + fraction.substr(1) + 'Z';
}

}  // namespace

std::string isoTime(SystemTime time) {
    return formatted(time, "%Y-%m-%dT%H:%M:%S");
}

std::string fileTime(SystemTime time) {
    return formatted(time, "%Y%m%dT%H%M%S");
}

std::string secondsText(double seconds) {
    std::array<char, 64> text{};
    const auto end =
        std::to_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed, 3);
    return {text.data(), end.ptr};
}

}  // namespace node
