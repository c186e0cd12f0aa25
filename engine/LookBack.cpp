// SPDX-License-Identifier: MIT
#include "LookBack.h"

#include <utility>

namespace engine {

LookBack::LookBack(int depth_frames, Sink sink)
    : depth_(static_cast<size_t>(depth_frames)), sink_(std::move(sink)) {}

void LookBack::push(const ResultFrame& frame, Mark mark) {
    held_.push_back({frame, mark == Mark::END ? Mark::END : Mark::NONE});
    if (mark == Mark::START)
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
    while (first != held_.begin() && (first - 1)->before != Mark::END)
        --first;
    first->before = Mark::START;
    for (auto held = first; held != held_.end(); ++held)
        held->frame.values[OPEN] = 1;
}

void LookBack::sendOldest() {
    const Held& oldest = held_.front();
    if (oldest.before != Mark::NONE) {
        ResultFrame marker = oldest.frame;
        marker.type = oldest.before == Mark::START ? FRAME_START : FRAME_END;
        sink_(bytesOf(marker));
    }
    sink_(bytesOf(oldest.frame));
    held_.pop_front();
}

}  // namespace engine
