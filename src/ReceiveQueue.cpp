// SPDX-License-Identifier: MIT
#include "ReceiveQueue.h"

namespace {

constexpr size_t FIRST_SLOTS = 4;

}  // namespace

// Twice the slots, the oldest frame in the first one.
void ReceiveQueue::grow() {
    std::vector<ReceiveData> slots(capacity_ == 0 ? FIRST_SLOTS : 2 * capacity_);
    for (size_t i = 0; i < size_; ++i)
        slots[i].swap((*this)[i]);
    slots_.swap(slots);
    capacity_ = slots_.size();
    first_ = 0;
}

void ReceiveQueue::giveBack() {
    *this = {};
}
