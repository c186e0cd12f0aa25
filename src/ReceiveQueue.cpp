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

std::vector<ReceiveData> ReceiveQueue::largerSlots() const {
    return std::vector<ReceiveData>(capacity_ == 0 ? FIRST_SLOTS : 2 * capacity_);
}

void ReceiveQueue::moveInto(std::vector<ReceiveData>& slots) noexcept {
    for (size_t i = 0; i < size_; ++i)
        slots[i].swap((*this)[i]);
    slots_.swap(slots);
    capacity_ = slots_.size();
    first_ = 0;
}

void ReceiveQueue::giveSlotsBack() noexcept {
    std::vector<ReceiveData>().swap(slots_);
    capacity_ = 0;
    first_ = 0;
}
