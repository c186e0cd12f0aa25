// SPDX-License-Identifier: MIT
#include "LookBack.h"

#include <utility>

namespace engine {

LookBack::LookBack(int depthFrames, Sink sink)
    : depth_(static_cast<size_t>(depthFrames)), sink_(std::move(sink)) {}

void LookBack::push(const ResultFrame& frame, Mark mark) {
    held_.push_back({frame, mark == Mark::End ? Mark::End : Mark::None});
    if (mark == Mark::Start)
        markStart();
    while (held_.size() > depth_)
        sendOldest();
}

void LookBack::flush() {
    while (!held_.empty())
        sendOldest();
}

// Moves START as far forward as the held frames allow. It stays behind an END that has not left
// yet, with at least one frame of non-speech between the two.
void LookBack::markStart() {
    auto first = held_.end() - 1;
    while (first != held_.begin() && (first - 1)->before != Mark::End)
        --first;
    first->before = Mark::Start;
    for (auto held = first; held != held_.end(); ++held)
        held->frame.values[kOpen] = 1;
}

void LookBack::sendOldest() {
    const Held& oldest = held_.front();
    if (oldest.before != Mark::None) {
        ResultFrame marker = oldest.frame;
        marker.type = oldest.before == Mark::Start ? kStart : kEnd;
        sink_(bytesOf(marker));
    }
    sink_(bytesOf(oldest.frame));
    held_.pop_front();
}

}  // namespace engine
