// SPDX-License-Identifier: MIT
#include "Child.h"

#include <sys/wait.h>

#include "node_loop.h"

namespace node {
namespace {

class ChildEndTest : public NodeTest {
  protected:
    void start(const std::string& script, const std::vector<std::string>& environment = {}) {
        startProgram({"/bin/sh", "-c", script}, environment);
    }
    void startProgram(const std::vector<std::string>& words,
                      const std::vector<std::string>& environment) {
        child_ = std::make_unique<Child>(
            loop_, reaper_, words, environment,
            ChildEvents{.on_output = [this](std::string_view bytes) { output_ += bytes; },
                        .on_errors = [this](std::string_view bytes) { errors_ += bytes; },
                        .on_output_end = nullptr,
                        .on_exit =
                            [this](const Ending& ending) {
                                events_.push_back(ending.text());
                                at_exit_ = output_ + errors_;
                            },
                        .on_stray = [this](const Ending&) { events_.push_back("stray"); },
                        .on_gone =
                            [this] {
                                events_.push_back("gone");
                                child_.reset();
                            }});
    }
    void run(const std::string& script, const std::vector<std::string>& environment = {}) {
        start(script, environment);
        waitFor([this] { return !child_; });
    }

    std::string output_;
    std::string errors_;
    std::string at_exit_;  // both, when the exit was told
    std::vector<std::string> events_;
    std::unique_ptr<Child> child_;
};

// The end of one child makes the loop look at all of them, at one that has just written and ended
// too: its output was not there when the loop looked what can be read.
TEST_F(ChildEndTest, WhatItWroteLastComesAheadOfItsEnd) {
    start("read line; printf out; printf err >&2");
    const auto waitForEnd = [](pid_t pid) {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    };
    bool other_is_gone = false;
    Child other(loop_, reaper_, {"/bin/echo"}, {},
                {.on_output =
                     [&](std::string_view) {
                         child_->write("go\n");
                         waitForEnd(child_->pid());
                     },
                 .on_errors = nullptr,
                 .on_output_end = nullptr,
                 .on_exit = nullptr,
                 .on_stray = nullptr,
                 .on_gone = [&other_is_gone] { other_is_gone = true; }});
    waitForEnd(other.pid());
    waitFor([&] { return !child_ && other_is_gone; });
    EXPECT_EQ(at_exit_, "outerr");
}

}  // namespace
}  // namespace node
