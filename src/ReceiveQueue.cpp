// SPDX-License-Identifier: MIT
#include "ReceiveQueue.h"

void ReceiveQueue::moveTo(size_t slots) {
    std::vector<ReceiveData> moved(slots);
    for (size_t i = 0; i < size_; ++i)
        moved[i].swap((*this)[i]);
    slots_.swap(moved);
    capacity_ = slots;
    first_ = 0;
}
