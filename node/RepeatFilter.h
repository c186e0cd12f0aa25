// SPDX-License-Identifier: MIT
// Keeps a message that repeats for hours from being written for hours: its text is let through the
// first time, then a minute later with the number of times in between, then after 2, 4 ... 60
// minutes. A text that was not seen for two hours is new again.
//
// Owned by the log; remembers the 64 texts seen last. Waits for nothing.
#ifndef TOLVANEV_NODE_REPEAT_FILTER_H
#define TOLVANEV_NODE_REPEAT_FILTER_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Loop.h"

namespace node {

class RepeatFilter {
  public:
    static constexpr std::chrono::minutes FIRST_PAUSE{1};
    static constexpr std::chrono::minutes LONGEST_PAUSE{60};
    static constexpr std::chrono::minutes FORGOTTEN{120};
    static constexpr size_t TEXTS = 64;

    // What is to be written for a text that is said now; nothing when it is held back.
    std::optional<std::string> pass(const std::string& text, Clock::time_point now);

  private:
    struct Memory {
        Clock::time_point seen;
        Clock::time_point written;
        std::chrono::minutes pause{FIRST_PAUSE};
        uint64_t held_back = 0;
    };
    void makeRoom();

    std::map<std::string, Memory> memory_;
};

}  // namespace node

#endif
