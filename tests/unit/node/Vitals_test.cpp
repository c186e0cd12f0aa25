// SPDX-License-Identifier: MIT
#include "Vitals.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "hermetic_test.h"
#include "wait_until.h"

namespace {

// A child that waits until it is killed.
class WaitingChild {
  public:
    WaitingChild() : pid_(fork()) {
        if (pid_ == 0) {
            while (true)
                pause();
        }
    }
    WaitingChild(const WaitingChild&) = delete;
    WaitingChild& operator=(const WaitingChild&) = delete;
    ~WaitingChild() {
        kill();
        waitpid(pid_, nullptr, 0);
    }
    pid_t pid() const { return pid_; }
    void kill() const { ::kill(pid_, SIGKILL); }

  private:
    pid_t pid_;
};

node::ProcessVitals own() {
    return node::vitalsOf(getpid(), "own").value();
}

TEST(Vitals, OfThisProcessAreThose) {
    const node::ProcessVitals vitals = own();
    EXPECT_EQ(vitals.name, "own");
    EXPECT_EQ(vitals.pid, getpid());
    EXPECT_GT(vitals.memory, 1000000U);
    EXPECT_LT(vitals.memory, 4000000000U);
}

TEST(Vitals, MemoryGrowsByWhatIsUsed) {
    const uint64_t before = own().memory;
    const std::vector<char> used(50000000, 'x');
    EXPECT_GE(own().memory, before + 45000000);
    EXPECT_EQ(used.back(), 'x');
}

TEST(Vitals, ProcessorTimeIsThatOfTheClock) {
    const auto clocked = [] {
        timespec time{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    };
    const double until = clocked() + 0.3;
    volatile unsigned work = 0;
    while (clocked() < until)
        work = work + 1;
    // The system counts in hundredths, user and system time apart.
    const double before = clocked();
    const double told = own().cpu_seconds;
    EXPECT_GE(told, before - 0.05);
    EXPECT_LE(told, clocked() + 0.05);
}

TEST(Vitals, BytesReadAndWrittenAreCounted) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const node::ProcessVitals before = own();
    std::string bytes(5000, 'x');
    ASSERT_EQ(write(ends[1], bytes.data(), 5000), 5000);
    ASSERT_EQ(read(ends[0], bytes.data(), 3000), 3000);
    const node::ProcessVitals after = own();
    close(ends[0]);
    close(ends[1]);
    EXPECT_EQ(after.written - before.written, 5000U);
    EXPECT_GE(after.read - before.read, 3000U);  // and what reading /proc takes
}

TEST(Vitals, SwitchesAreCounted) {
    const uint64_t before = own().switches;
    for (int i = 0; i < 10; ++i)
        usleep(1000);
    EXPECT_GE(own().switches, before + 10);
}

TEST(Vitals, AreRightWhateverTheProcessIsCalled) {
    char name[16] = "";
    prctl(PR_GET_NAME, name);
    prctl(PR_SET_NAME, ") 1 R 2 (x) 9");
    const uint64_t odd = own().memory;
    prctl(PR_SET_NAME, name);
    const uint64_t plain = own().memory;
    EXPECT_GT(odd, plain / 2);
    EXPECT_LT(odd, plain * 2);
}

TEST(Vitals, OfAChildAreThere) {
    const WaitingChild child;
    const auto vitals = node::vitalsOf(child.pid(), "engine");
    ASSERT_TRUE(vitals);
    EXPECT_EQ(vitals->name, "engine");
    EXPECT_EQ(vitals->pid, child.pid());
    EXPECT_GT(vitals->memory, 0U);
}

TEST(Vitals, OfWhatIsLeftOfAProcessThereAreNone) {
    const WaitingChild child;
    child.kill();
    EXPECT_TRUE(waitUntil([] { return endedChild().si_pid != 0; }));
    EXPECT_FALSE(node::vitalsOf(child.pid(), "engine"));
}

TEST(Vitals, OfNoProcessThereAreNone) {
    EXPECT_FALSE(node::vitalsOf(0x7FFFFFFF, "none"));
}

TEST(Vitals, ChildrenAreThoseThatThereAre) {
    EXPECT_THAT(node::childrenOf(getpid()), testing::IsEmpty());
    const WaitingChild one;
    {
        const WaitingChild other;
        EXPECT_THAT(node::childrenOf(getpid()),
                    testing::UnorderedElementsAre(one.pid(), other.pid()));
    }
    EXPECT_THAT(node::childrenOf(getpid()), testing::ElementsAre(one.pid()));
    EXPECT_THAT(node::childrenOf(0x7FFFFFFF), testing::IsEmpty());
}

}  // namespace
