// SPDX-License-Identifier: MIT
#include "FrameReader.h"

#include <algorithm>
#include <utility>

namespace node {

namespace {

int32_t typeOf(const char* bytes) {
    Frame header;
    std::copy_n(bytes, framesync::HEADER_SIZE, header.bytes.begin());
    return header.type();
}

}  // namespace

void FrameReader::read(std::string_view bytes) {
    waiting_.append(bytes);
    while (true) {
        if (lost_ && !search())
            break;
        if (waiting_.size() - at_ < FRAME_SIZE)
            break;
        if (!typeAt(at_)) {
            lost_ = true;
            lost_type_ = std::to_string(typeOf(waiting_.data() + at_));
            continue;
        }
        std::copy_n(waiting_.data() + at_, FRAME_SIZE, frame_.bytes.begin());
        at_ += FRAME_SIZE;
        on_frame_(frame_);
    }
    waiting_.erase(0, at_);
    at_ = 0;
}

bool FrameReader::search() {
    constexpr size_t NEEDED = (CONFIRMED - 1) * FRAME_SIZE + framesync::HEADER_SIZE;
    for (; waiting_.size() - at_ >= NEEDED; ++at_, ++lost_bytes_) {
        bool confirmed = true;
        for (size_t i = 0; i < CONFIRMED && confirmed; ++i)
            confirmed = typeAt(at_ + i * FRAME_SIZE);
        if (confirmed) {
            lose(lost_type_ + " is no type of a frame");
            return true;
        }
    }
    return false;
}

void FrameReader::end() {
    lost_bytes_ += waiting_.size();
    waiting_.clear();
    if (lost_)
        lose(lost_type_ + " is no type of a frame");
    else
        lose("the last frame was cut");
}

bool FrameReader::typeAt(size_t offset) const {
    return isFrameType(typeOf(waiting_.data() + offset));
}

void FrameReader::lose(const std::string& reason) {
    lost_ = false;
    if (lost_bytes_ > 0)
        on_loss_(std::exchange(lost_bytes_, 0), reason);
}

}  // namespace node
