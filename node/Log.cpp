// SPDX-License-Identifier: MIT
#include "Log.h"

#include <sys/stat.h>

#include <cstdlib>
#include <ctime>

namespace node {

namespace {

struct Names {
    const char* journal;
    const char* word;
};

Names namesOf(Level level) {
    switch (level) {
        case Level::ERROR:
            return {"<3>", "error"};
        case Level::WARNING:
            return {"<4>", "warning"};
        case Level::DEBUG:
            return {"<7>", "debug"};
        default:
            return {"<6>", "info"};
    }
}

// Local time of day, "HH:MM:SS.mmm".
std::string timeOfDay(SystemTime now) {
    const time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto parts = std::chrono::duration_cast<milliseconds>(now.time_since_epoch()) % 1000;
    tm local{};
    localtime_r(&seconds, &local);
    char text[32] = "";
    const size_t length = strftime(text, sizeof text, "%H:%M:%S", &local);
    snprintf(text + length, sizeof text - length, ".%03d", static_cast<int>(parts.count()));
    return text;
}

}  // namespace

std::string lineOf(const Message& message, bool journal, SystemTime now) {
    const Names names = namesOf(message.level);
    std::string line = journal ? names.journal : timeOfDay(now) + " " + names.word + ": ";
    if (message.from_bridge)
        line += "bridge: ";
    for (const char c : message.text)
        line += static_cast<unsigned char>(c) < ' ' || c == 0x7F ? '?' : c;
    return line + "\n";
}

bool journalReads() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat about {};
    if (!stream || fstat(2, &about) != 0)
        return false;
    return stream == std::to_string(about.st_dev) + ":" + std::to_string(about.st_ino);
}

}  // namespace node
