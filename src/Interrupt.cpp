// SPDX-License-Identifier: MIT
#include "Interrupt.h"

#include <csignal>

namespace {

volatile sig_atomic_t waiting = 0;
volatile sig_atomic_t left = 0;  // the signal for the next wait; 0 = none

}  // namespace

bool Interrupt::mayAct() {
    return waiting;
}

void Interrupt::leaveToNextWait(int signal_number) {
    left = signal_number;
}

Interrupt::Wait::Wait() {
    waiting = 1;
    if (!left)
        return;
    const int signal_number = left;
    left = 0;
    raise(signal_number);
}

Interrupt::Wait::~Wait() {
    waiting = 0;
}
