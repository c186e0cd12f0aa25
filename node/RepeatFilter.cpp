// SPDX-License-Identifier: MIT
#include "RepeatFilter.h"

#include <algorithm>

namespace node {

std::optional<std::string> RepeatFilter::pass(const std::string& text, Clock::time_point now) {
    const auto known = memory_.find(text);
    if (known == memory_.end() || now - known->second.seen > FORGOTTEN) {
        if (known == memory_.end())
            makeRoom();
        memory_[text] = Memory{now, now};
        return text;
    }
    Memory& memory = known->second;
    memory.seen = now;
    if (now - memory.written < memory.pause) {
        ++memory.held_back;
        return std::nullopt;
    }
    const uint64_t times = memory.held_back + 1;
    const auto since = std::chrono::duration_cast<std::chrono::minutes>(now - memory.written);
    memory.written = now;
    memory.pause = std::min(memory.pause * 2, LONGEST_PAUSE);
    memory.held_back = 0;
    if (times == 1)
        return text;
    return text + " (" + std::to_string(times) + " times in " + std::to_string(since.count()) +
           " min)";
}

void RepeatFilter::makeRoom() {
    if (memory_.size() < TEXTS)
        return;
    memory_.erase(std::min_element(memory_.begin(), memory_.end(), [](auto& one, auto& other) {
        return one.second.seen < other.second.seen;
    }));
}

}  // namespace node
