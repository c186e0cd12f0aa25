// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_INTERRUPT_WATCH_H
#define TOLVANEV_TESTS_INTERRUPT_WATCH_H

#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <utility>

#include "Interrupt.h"

// Stands in for the program's handler of SIGINT: notes when an interrupt acts, and lets the program
// go on. One at a time.
class InterruptWatch {
  public:
    // on_act runs when an interrupt acts.
    explicit InterruptWatch(std::function<void()> on_act = [] {}) {
        came_ = 0;
        acted_ = 0;
        on_act_ = std::move(on_act);
        struct sigaction action {};
        action.sa_flags = SA_RESTART;
        action.sa_handler = [](int number) {
            came_ = came_ + 1;
            if (!Interrupt::mayAct())
                return Interrupt::leaveToNextWait(number);
            acted_ = acted_ + 1;
            on_act_();
        };
        EXPECT_EQ(sigaction(SIGINT, &action, &old_), 0);
    }
    ~InterruptWatch() {
        heedInterrupt();  // none is left to the next test
        sigaction(SIGINT, &old_, nullptr);
        on_act_ = nullptr;
    }
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    static int came() { return came_; }
    static int acted() { return acted_; }

  private:
    static inline volatile sig_atomic_t came_ = 0;
    static inline volatile sig_atomic_t acted_ = 0;
    static inline std::function<void()> on_act_;
    struct sigaction old_ {};
};

#endif
