// SPDX-License-Identifier: MIT
#include "Child.h"

#include <signal.h>
#include <sys/resource.h>

#include "node_loop.h"

namespace node {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// This process gets no descriptor of this number or above.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(int end) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit now{static_cast<rlim_t>(end), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &now);
    }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }

  private:
    rlimit before_{};
};

class ChildTest : public NodeTest {
  protected:
    void start(const std::string& script, const std::vector<std::string>& environment = {}) {
        child_ = std::make_unique<Child>(
            loop_, reaper_, std::vector<std::string>{"/bin/sh", "-c", script}, environment,
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

TEST_F(ChildTest, EndIsToldWithItsStatus) {
    run("exit 3");
    EXPECT_THAT(events_, ElementsAre("status 3", "gone"));
}

TEST_F(ChildTest, SignalHasItsName) {
    run("kill -TERM $$");
    EXPECT_THAT(events_, ElementsAre("SIGTERM", "gone"));
}

// Whatever comes first out of the loop's poll: many tries, since one may be lucky.
TEST_F(ChildTest, WhatItWroteLastComesAheadOfItsEnd) {
    for (int i = 0; i < 30; ++i) {
        output_.clear();
        errors_.clear();
        run("printf out; printf err >&2");
        ASSERT_EQ(at_exit_, "outerr");
    }
}

TEST_F(ChildTest, InputIsReadToItsEnd) {
    start("wc -c");
    EXPECT_TRUE(child_->write(std::string(300000, 'x')));
    child_->closeInput();
    EXPECT_FALSE(child_->write("more"));
    waitFor([this] { return !child_; });
    EXPECT_EQ(output_, "300000\n");
}

TEST_F(ChildTest, MayGoWithInputThatNobodyReads) {
    start("exec sleep 600");
    child_->write(std::string(300000, 'x'));
    child_->closeInput();
    runFor(loop_, milliseconds(20));
    EXPECT_GT(child_->waitingInput(), 0u);
    child_.reset();  // the fixture sees that nothing is left
}

TEST_F(ChildTest, RestOfTheGroupIsReapedWhereverItEnds) {
    start("sleep 600 & exit 0");
    waitFor([this] { return child_->exited(); });
    EXPECT_FALSE(child_->gone());
    child_->signalGroup(SIGKILL);
    waitFor([this] { return !child_; });
    EXPECT_THAT(events_, ElementsAre("status 0", "stray", "gone"));
}

TEST_F(ChildTest, VariableTakesThePlaceOfOurs) {
    setenv("TOLVANEV_TEST", "old", 1);
    run("env | grep ^TOLVANEV_TEST", {"TOLVANEV_TEST=new", "TOLVANEV_TEST2=x"});
    unsetenv("TOLVANEV_TEST");
    EXPECT_EQ(output_, "TOLVANEV_TEST=new\nTOLVANEV_TEST2=x\n");
}

// No test under this limit may look at an object with virtual functions: a sanitizer that checks
// them needs a descriptor.
TEST_F(ChildTest, WithoutDescriptorsItIsNotStartedAndLeavesNone) {
    const std::set<int> open = openDescriptors();
    Loop& loop = loop_;
    Reaper& reaper = reaper_;
    // Each of the steps in its turn is the one that fails.
    for (int room = 0; room < 8; ++room) {
        int end = 0;
        for (int free = 0; free < room || open.contains(end); ++end)
            free += !open.contains(end);
        std::string text;
        try {
            const DescriptorLimit limit(end);
            const Child child(loop, reaper, {"/bin/true"}, {}, {});
        } catch (const NodeError& error) {
            text = error.what();
        }
        EXPECT_EQ(text, "/bin/true: too many open files") << "room for " << room;
        loop.runOnce(false);
    }
}

TEST_F(ChildTest, WithoutWhatStartsItThereIsNoChild) {
    try {
        start("exit 0", {"PATH=/nowhere"});
        FAIL();
    } catch (const NodeError& error) {
        EXPECT_STREQ(error.what(), "setpriv: no such file or directory");
    }
}

TEST_F(ChildTest, MissingProgramIsAnEnd) {
    child_ = std::make_unique<Child>(
        loop_, reaper_, std::vector<std::string>{"/no/program"}, std::vector<std::string>{},
        ChildEvents{.on_output = nullptr,
                    .on_errors = [this](std::string_view bytes) { errors_ += bytes; },
                    .on_output_end = nullptr,
                    .on_exit = [this](const Ending& end) { events_.push_back(end.text()); },
                    .on_stray = nullptr,
                    .on_gone = [this] { child_.reset(); }});
    waitFor([this] { return !child_; });
    EXPECT_THAT(events_, ElementsAre("status 127"));
    EXPECT_THAT(errors_, HasSubstr("/no/program"));
}

TEST_F(ChildTest, GoesWithTheProcessThatStartedIt) {
    start("exec sleep 600");
    const pid_t pid = child_->pid();
    child_.reset();
    waitFor([pid] { return kill(pid, 0) != 0; });
}

}  // namespace
}  // namespace node
