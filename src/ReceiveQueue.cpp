// SPDX-License-Identifier: MIT
#include "ReceiveQueue.h"

#include <bit>

ReceiveQueue::ReceiveQueue(const ReceiveQueue& other) {
    if (other.empty())
        return;
    slots_.resize(std::max(FIRST_SLOTS, std::bit_ceil(other.size())));
    std::copy(other.begin(), other.end(), slots_.begin());
    capacity_ = slots_.size();
    size_ = other.size();
}

ReceiveQueue& ReceiveQueue::operator=(const ReceiveQueue& other) {
    ReceiveQueue copy(other);
    swap(copy);
    return *this;
}

void ReceiveQueue::growBack(ReceiveData& frame) {
    std::vector<ReceiveData> larger(largerCapacity());
    larger[size_].swap(frame);
    moveInto(larger);
    ++size_;
}

void ReceiveQueue::growFront(ReceiveData& frame) {
    std::vector<ReceiveData> larger(largerCapacity());
    larger.back().swap(frame);
    moveInto(larger);
    first_ = capacity_ - 1;
    ++size_;
}

void ReceiveQueue::moveInto(std::vector<ReceiveData>& slots) noexcept {
    for (size_t i = 0; i < size_; ++i)
        slots[i].swap((*this)[i]);
    slots_.swap(slots);
    capacity_ = slots_.size();
    first_ = 0;
}

// Moves and drops within the slots that are there, since there may be no memory for others.
void ReceiveQueue::keepSlots(size_t slots) noexcept {
    const auto first = std::next(slots_.begin(), static_cast<ptrdiff_t>(first_));
    std::rotate(slots_.begin(), first, slots_.end());
    slots_.resize(slots);
    capacity_ = slots;
    first_ = 0;
}
