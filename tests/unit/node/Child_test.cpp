// SPDX-License-Identifier: MIT
#include "Child.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "node_loop.h"
#include "temp_dir.h"

namespace {

using node::Ending;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

// Starts a child and keeps what it tells; "exit", "stray" and "gone" in their order.
class ChildTest : public NodeTest {
  protected:
    void start(const std::vector<std::string>& words,
               const std::vector<std::string>& environment = {}) {
        node::ChildEvents events;
        events.on_output = [this](std::string_view bytes) { output_ += bytes; };
        events.on_errors = [this](std::string_view bytes) { errors_ += bytes; };
        events.on_output_end = [this] { order_.emplace_back("output end"); };
        events.on_exit = [this](const Ending& ending) {
            ending_ = ending;
            order_.emplace_back("exit");
        };
        events.on_stray = [this](const Ending& ending) {
            strays_.push_back(ending);
            order_.emplace_back("stray");
        };
        events.on_gone = [this] { order_.emplace_back("gone"); };
        child_ = std::make_unique<node::Child>(loop_, reaper_, words, environment, events);
    }
    void shell(const std::string& script, const std::vector<std::string>& environment = {}) {
        start({"/bin/sh", "-c", script}, environment);
    }
    // What libuv opens once for a loop with streams is there ahead of a count.
    std::set<int> descriptorsWhenWarm() {
        start({"true"});
        waitForEnd();
        child_.reset();
        loop_.runOnce(false);
        return openDescriptors();
    }
    void waitForExit() {
        waitFor([this] { return child_->exited(); });
    }
    void waitForEnd() {
        waitFor([this] { return child_->gone(); });
    }
    void waitForOutput(const std::string& text) {
        waitFor([&] { return output_.find(text) != std::string::npos; });
    }
    static bool there(pid_t pid) { return kill(pid, 0) == 0; }

    std::string output_;
    std::string errors_;
    std::vector<std::string> order_;
    Ending ending_;
    std::vector<Ending> strays_;
    std::unique_ptr<node::Child> child_;
};

TEST_F(ChildTest, CatEchoesWhatItIsGiven) {
    start({"cat"});
    EXPECT_TRUE(child_->write("first "));
    EXPECT_TRUE(child_->write("second"));
    waitForOutput("first second");
    EXPECT_FALSE(child_->exited());
    child_->closeInput();
    waitForEnd();
    EXPECT_EQ(output_, "first second");
    EXPECT_EQ(ending_.text(), "status 0");
    EXPECT_FALSE(child_->write("more"));
}

TEST_F(ChildTest, InputIsClosedBehindAllThatIsQueued) {
    start({"cat"});
    std::string sent;
    for (int i = 0; i < 20000; ++i)
        sent += std::to_string(i) + ", which is far more than a pipe holds\n";
    EXPECT_TRUE(child_->write(sent));
    EXPECT_GT(child_->waitingInput(), 0U);
    child_->closeInput();
    child_->closeInput();
    waitForEnd();
    EXPECT_EQ(output_.size(), sent.size());
    EXPECT_EQ(output_, sent);
}

TEST_F(ChildTest, OutputAndErrorsAreApart) {
    shell("echo out; echo err >&2");
    waitForEnd();
    EXPECT_EQ(output_, "out\n");
    EXPECT_EQ(errors_, "err\n");
}

TEST_F(ChildTest, AllThatItWroteIsTaken) {
    start({"head", "-c", "3000000", "/dev/zero"});
    waitForEnd();
    waitFor([this] { return output_.size() >= 3000000; });
    EXPECT_EQ(output_.size(), 3000000U);
}

TEST_F(ChildTest, TellsItsExitStatus) {
    shell("exit 7");
    waitForEnd();
    EXPECT_EQ(ending_.status, 7);
    EXPECT_EQ(ending_.signal, 0);
    EXPECT_EQ(ending_.text(), "status 7");
    EXPECT_EQ(ending_.pid, child_->pid());
}

TEST_F(ChildTest, TellsTheSignalThatKilledIt) {
    for (const auto& [number, name] : {std::pair{SIGKILL, "SIGKILL"}, {SIGTERM, "SIGTERM"}}) {
        start({"sleep", "1000"});
        child_->signal(number);
        waitForEnd();
        EXPECT_EQ(ending_.signal, number);
        EXPECT_EQ(ending_.text(), name);
    }
}

// This process ignores SIGPIPE; a bridge that did so too would not end with its voice server.
TEST_F(ChildTest, SignalsHaveTheirUsualEffect) {
    shell("kill -PIPE $$; echo still here");
    waitForEnd();
    EXPECT_EQ(ending_.text(), "SIGPIPE");
    EXPECT_EQ(output_, "");
}

TEST(Ending, NamesSignals) {
    EXPECT_EQ((Ending{1, 0, SIGSEGV}.text()), "SIGSEGV");
    EXPECT_EQ((Ending{1, 3, 0}.text()), "status 3");
    EXPECT_THAT((Ending{1, 0, 40}.text()), HasSubstr("40"));
}

TEST_F(ChildTest, ExitComesBeforeGone) {
    shell("echo word");
    waitForEnd();
    waitFor([this] { return order_.size() == 3; });
    const auto at = [this](const char* what) {
        return std::find(order_.begin(), order_.end(), what) - order_.begin();
    };
    EXPECT_LT(at("exit"), at("gone"));
    EXPECT_LT(at("output end"), 3);
}

TEST_F(ChildTest, AMissingProgramIsNamed) {
    const auto before = descriptorsWhenWarm();
    for (const std::string program : {"no-such-program", "/no/such/program"}) {
        try {
            start({program});
            FAIL() << "started";
        } catch (const node::NodeError& error) {
            EXPECT_THAT(error.what(), AllOf(HasSubstr(program), HasSubstr("No such file")));
        }
    }
    loop_.runOnce(false);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ChildTest, AFileThatIsNoProgramIsNamed) {
    const TempDir folder;
    folder.write("text", "not a program");
    EXPECT_THROW(start({folder.path("text")}), node::NodeError);
}

TEST_F(ChildTest, WithoutDescriptorsNothingIsStartedAndLaterThingsAre) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const auto before = descriptorsWhenWarm();
    for (rlim_t spare = 0; spare < 8; ++spare) {
        rlimit few = limit;
        few.rlim_cur = static_cast<rlim_t>(*before.rbegin()) + 1 + spare;
        setrlimit(RLIMIT_NOFILE, &few);
        try {
            start({"true"});
        } catch (const node::NodeError& error) {
            EXPECT_THAT(error.what(), HasSubstr("true"));
        }
        setrlimit(RLIMIT_NOFILE, &limit);
        if (child_)
            waitForEnd();
        child_.reset();
        loop_.runOnce(false);
        EXPECT_EQ(openDescriptors(), before) << spare;
    }
    start({"true"});
    waitForEnd();
}

TEST_F(ChildTest, VariablesComeInAdditionToOurs) {
    shell("echo $UTTERANCE; echo $PATH", {"UTTERANCE=17"});
    waitForEnd();
    EXPECT_EQ(output_, "17\n" + std::string(std::getenv("PATH")) + "\n");
}

TEST_F(ChildTest, AVariableTakesThePlaceOfOursOfThatName) {
    setenv("TOLVANEV_TEST", "ours", 1);
    start({"env"}, {"TOLVANEV_TEST=its own"});
    waitForEnd();
    unsetenv("TOLVANEV_TEST");
    EXPECT_THAT(output_, HasSubstr("TOLVANEV_TEST=its own\n"));
    EXPECT_THAT(output_, testing::Not(HasSubstr("TOLVANEV_TEST=ours")));
}

TEST_F(ChildTest, NoDescriptorOfTheLoopIsInherited) {
    node::Child other(loop_, reaper_, {"cat"}, {}, {});  // its pipes least of all
    start({"ls", "/proc/self/fd"});
    // This process' own may be open for children too: those that it was started with.
    const auto open = openDescriptors();
    const auto inherited = std::count_if(open.begin(), open.end(),
                                         [](int fd) { return fd > 2 && fcntl(fd, F_GETFD) == 0; });
    waitForEnd();
    // 0, 1, 2 and the walk's own on top.
    EXPECT_EQ(std::count(output_.begin(), output_.end(), '\n'), inherited + 4) << output_;
}

TEST_F(ChildTest, AGrandchildLeftBehindIsKilledReapedAndTold) {
    shell("sleep 1000 >/dev/null 2>&1 & echo $!");
    waitForExit();
    const auto left = static_cast<pid_t>(std::stol(output_));
    EXPECT_TRUE(there(left));
    EXPECT_FALSE(child_->gone());
    child_->signalGroup(SIGKILL);
    waitForEnd();
    ASSERT_EQ(strays_.size(), 1U);
    EXPECT_EQ(strays_[0].pid, left);
    EXPECT_EQ(strays_[0].text(), "SIGKILL");
    EXPECT_FALSE(there(left));
    EXPECT_EQ(order_.back(), "gone");
}

// The grandchild moves to a session of its own and never collects its child, which stays behind.
TEST_F(ChildTest, WhatCannotBeCollectedIsGivenUp) {
    shell(
        "/usr/bin/python3 -c 'import os, time\n"
        "if os.fork() == 0: os._exit(0)\n"
        "os.setsid()\n"
        "print(os.getpid(), flush=True)\n"
        "time.sleep(1000)' &");
    waitForOutput("\n");
    waitForExit();
    const auto stranger = static_cast<pid_t>(std::stol(output_));
    EXPECT_FALSE(child_->gone());
    child_->signalGroup(SIGKILL);
    waitForEnd();
    EXPECT_TRUE(there(stranger));
    kill(stranger, SIGKILL);
    waitFor([&] { return !there(stranger); });
}

TEST_F(ChildTest, AGrandchildThatEndsByItselfIsTold) {
    shell("(sleep 0.2; exit 5) >/dev/null 2>&1 &");
    waitForEnd();
    ASSERT_GE(strays_.size(), 1U);
    EXPECT_EQ(strays_.back().text(), "status 5");
    EXPECT_EQ(order_.back(), "gone");
}

TEST_F(ChildTest, ManyGrandchildrenAreAllReaped) {
    shell("for i in 1 2 3 4 5 6 7 8 9; do sleep 1000 >/dev/null 2>&1 & done");
    waitForExit();
    child_->signalGroup(SIGTERM);
    waitForEnd();
    EXPECT_EQ(strays_.size(), 9U);
    EXPECT_FALSE(hasChildren());
}

TEST_F(ChildTest, OneThatIgnoresSigtermIsKilledBySigkill) {
    shell("trap '' TERM; echo ready; while true; do sleep 0.05; done");
    waitForOutput("ready");
    child_->signal(SIGTERM);
    runFor(loop_, milliseconds(300));
    EXPECT_FALSE(child_->exited());
    child_->signalGroup(SIGKILL);
    waitForEnd();
    EXPECT_EQ(ending_.text(), "SIGKILL");
}

TEST_F(ChildTest, ItsDestructorKillsTheWholeGroup) {
    shell("sleep 1000 & echo $!; wait");
    waitForOutput("\n");
    const auto grandchild = static_cast<pid_t>(std::stol(output_));
    const pid_t pid = child_->pid();
    child_.reset();
    waitFor([&] { return !there(pid) && !there(grandchild); });
    EXPECT_FALSE(hasChildren());
    EXPECT_THAT(order_, IsEmpty());  // nobody is there to be told
}

TEST_F(ChildTest, ItsDestructorKillsWhatAnEndedChildHasLeft) {
    shell("sleep 1000 >/dev/null 2>&1 & echo $!");
    waitForExit();
    const auto left = static_cast<pid_t>(std::stol(output_));
    child_.reset();
    waitFor([&] { return !there(left); });
}

TEST_F(ChildTest, MayBeDestroyedWhenItIsGone) {
    bool gone = false;
    node::ChildEvents events;
    events.on_gone = [&] {
        child_.reset();
        gone = true;
    };
    child_ = std::make_unique<node::Child>(loop_, reaper_, std::vector<std::string>{"true"},
                                           std::vector<std::string>{}, events);
    waitFor([&] { return gone; });
    EXPECT_EQ(child_, nullptr);
}

TEST_F(ChildTest, SignalsForOneThatHasEndedGoNowhere) {
    start({"true"});
    waitForEnd();
    child_->signal(SIGKILL);
    child_->signalGroup(SIGKILL);
    child_->closeInput();
}

TEST_F(ChildTest, WritingToOneThatHasEndedIsNoError) {
    start({"true"});
    waitForEnd();
    for (int i = 0; i < 10; ++i) {
        child_->write(std::string(100000, 'x'));
        loop_.runOnce(false);
    }
}

TEST_F(ChildTest, OneThatDoesNotReadIsWaitedForByNobody) {
    start({"sleep", "1000"});
    for (int i = 0; i < 10; ++i)
        EXPECT_TRUE(child_->write(std::string(100000, 'x')));
    runFor(loop_, milliseconds(50));
    EXPECT_GT(child_->unreadInput(), 0U);
    EXPECT_EQ(child_->waitingInput() + child_->unreadInput(), 1000000U);
    child_->closeInput();
    child_.reset();
}

TEST_F(ChildTest, TwoAreTwoGroups) {
    start({"sleep", "1000"});
    node::ChildEvents events;
    bool other_gone = false;
    events.on_gone = [&] { other_gone = true; };
    node::Child other(loop_, reaper_, {"sleep", "1000"}, {}, events);
    child_->signalGroup(SIGKILL);
    waitForEnd();
    EXPECT_FALSE(other.exited());
    other.signalGroup(SIGKILL);
    waitFor([&] { return other_gone; });
    EXPECT_THAT(strays_, IsEmpty());
}

TEST_F(ChildTest, HundredInARowLeaveNothing) {
    const auto before = descriptorsWhenWarm();
    for (int i = 0; i < 100; ++i) {
        shell("sleep 1000 >/dev/null 2>&1 & exit 3");
        waitForExit();
        child_->signalGroup(SIGKILL);
        waitForEnd();
        EXPECT_EQ(ending_.status, 3);
    }
    child_.reset();
    loop_.runOnce(false);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

TEST_F(ChildTest, ManyAtOnceAreReapedInAnyOrder) {
    std::vector<std::unique_ptr<node::Child>> children;
    int gone = 0;
    for (int i = 0; i < 20; ++i) {
        node::ChildEvents events;
        events.on_gone = [&gone] { ++gone; };
        const std::string script = "sleep 0.1 & sleep 0.0" + std::to_string(i % 10) + "; exit 1";
        children.push_back(std::make_unique<node::Child>(
            loop_, reaper_, std::vector<std::string>{"/bin/sh", "-c", script},
            std::vector<std::string>{}, events));
    }
    waitFor([&] { return gone == 20; });
    EXPECT_FALSE(hasChildren());
}

// Nobody else would end a bridge that waits for its peers: it does not look at its input then.
TEST_F(ChildTest, DiesWithAProcessThatIsKilled) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t owner = fork();
    if (owner == 0) {
        node::Loop loop;
        node::Reaper reaper(loop);
        bool said = false;
        node::ChildEvents events;
        events.on_output = [&said](std::string_view) { said = true; };
        const node::Child child(loop, reaper, {"/bin/sh", "-c", "echo; exec sleep 1000"}, {},
                                events);
        while (!said)
            loop.runOnce(true);
        const pid_t pid = child.pid();
        if (write(ends[1], &pid, sizeof(pid)) != sizeof(pid))
            _exit(1);
        while (true)
            pause();
    }
    pid_t pid = 0;
    EXPECT_EQ(read(ends[0], &pid, sizeof(pid)), static_cast<ssize_t>(sizeof(pid)));
    close(ends[0]);
    close(ends[1]);
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(there(pid));
    kill(owner, SIGKILL);
    waitpid(owner, nullptr, 0);
    waitFor([pid] { return !there(pid); });  // we reap it: we are the owner's parent
}

}  // namespace
