// SPDX-License-Identifier: MIT
#include "no_memory.h"

#include <cstddef>
#include <new>

namespace {

bool refusing = false;
int refused = 0;

}  // namespace

// What the linker calls operator new(size_t), on both architectures.
extern "C" {
void* __real__Znwm(size_t size);

void* __wrap__Znwm(size_t size) {
    if (!refusing)
        return __real__Znwm(size);
    ++refused;
    throw std::bad_alloc();
}
}

NoMemory::NoMemory() {
    refused = 0;
    refusing = true;
}

NoMemory::~NoMemory() {
    refusing = false;
}

int NoMemory::asked() const {
    return refused;
}
