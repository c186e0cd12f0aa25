// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_NODE_LOOP_H
#define TOLVANEV_TESTS_NODE_LOOP_H

#include <gtest/gtest.h>
#include <signal.h>

#include <optional>
#include <string>
#include <vector>

#include "Child.h"
#include "Log.h"
#include "hermetic_test.h"

// Runs the loop until the condition holds; false when it did not within a generous bound, which
// only a failing test ever reaches.
template <typename Condition>
bool runUntil(node::Loop& loop, Condition condition) {
    const auto end = node::Clock::now() + std::chrono::seconds(20);
    node::Timer wake(loop, [] {});
    wake.every(node::milliseconds(1));
    while (!condition()) {
        if (node::Clock::now() > end)
            return false;
        loop.runOnce(true);
    }
    return true;
}

inline void runFor(node::Loop& loop, node::milliseconds time) {
    const auto end = node::Clock::now() + time;
    runUntil(loop, [end] { return node::Clock::now() >= end; });
}

// What libuv opens once for a process it keeps: it is there ahead of the first test's count.
inline const bool libuv_is_warm = [] {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    node::Loop loop;
    node::Background background(loop);
    bool done = false;
    background.run([] {}, [&done] { done = true; });
    const node::SignalWatch watch(loop, SIGCHLD, [] {});
    return runUntil(loop, [&done] { return done; });
}();

// A loop, a log that keeps what is said, and the reaping of whatever a test starts.
class NodeTest : public testing::Test {
  protected:
    ~NodeTest() override {
        EXPECT_TRUE(runUntil(loop_, [] { return !hasChildren(); })) << "a process is left";
    }

    template <typename Condition>
    void waitFor(Condition condition) {
        ASSERT_TRUE(runUntil(loop_, condition));
    }
    // The texts of this level so far.
    std::vector<std::string> said(node::Level level = node::Level::WARNING) const {
        std::vector<std::string> texts;
        for (const node::Message& message : messages_) {
            if (message.level == level)
                texts.push_back(message.text);
        }
        return texts;
    }

    std::vector<node::Message> messages_;
    node::Log log_{[this](const node::Message& message) { messages_.push_back(message); }};
    node::Loop loop_;
    node::Reaper reaper_{loop_};
};

#endif
