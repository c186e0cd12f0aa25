// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_WAIT_UNTIL_H
#define TOLVANEV_TESTS_WAIT_UNTIL_H

#include <chrono>
#include <thread>

// Tries until the condition holds; false when it did not within a generous bound, which only a
// failing test ever reaches.
template <typename Condition>
bool waitUntil(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
