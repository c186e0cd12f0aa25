// SPDX-License-Identifier: MIT
#include "common.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <type_traits>

#include "interrupt_watch.h"

namespace {

using std::chrono::steady_clock;
using namespace std::chrono_literals;

static_assert(framesync::HEADER_SIZE == 4);
static_assert(framesync::VAD_DATA_SIZE == 100);
static_assert(framesync::VAD_FRAME_SIZE == 104);
static_assert(framesync::MMSE_DATA_SIZE == 320);
static_assert(framesync::MMSE_FRAME_SIZE == 324);
static_assert(framesync::VOICE_SERVER_DATA_SIZE == 320);
static_assert(framesync::VOICE_SERVER_FRAME_SIZE == 324);

static_assert(app_controller::NOISE_FRAME_SIZE == 10);
static_assert(app_controller::NOISE_MODEL_RENEW_FREQ == 500);
static_assert(app_controller::NOISE_QUE_SIZE == 5);

// The gap between 2 and 9 is part of the frame format.
static_assert(FRAME_DATA == 0 && FRAME_START == 1 && FRAME_END == 2);
static_assert(FRAME_TOF == 9 && FRAME_EOF == 10);

static_assert(std::is_same_v<ByteArray, std::vector<char>>);
static_assert(std::is_same_v<ReceiveData, std::vector<char>>);
static_assert(std::is_same_v<NoiseQueue, std::deque<ReceiveQueue>>);

// A pipe with its two ends; an end that was closed early is -1.
class WaitReadable : public testing::Test {
  protected:
    void SetUp() override {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        read_end_ = ends[0];
        write_end_ = ends[1];
    }
    void TearDown() override {
        close(read_end_);
        hangUp();
    }
    void send() { ASSERT_EQ(write(write_end_, "x", 1), 1); }
    void hangUp() {
        if (write_end_ != -1)
            close(write_end_);
        write_end_ = -1;
    }

    int read_end_ = -1;
    int write_end_ = -1;
};

TEST_F(WaitReadable, ReturnsOneWhenBytesAreWaiting) {
    send();
    EXPECT_EQ(waitReadable(read_end_, 0), 1);
    EXPECT_EQ(waitReadable(read_end_, 60000), 1);
}

TEST_F(WaitReadable, TakesNoByte) {
    send();
    EXPECT_EQ(waitReadable(read_end_, 0), 1);
    char byte = 0;
    EXPECT_EQ(read(read_end_, &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
}

TEST_F(WaitReadable, ReturnsOneWhenThePeerHasHungUp) {
    hangUp();
    EXPECT_EQ(waitReadable(read_end_, 60000), 1);
}

TEST_F(WaitReadable, ReturnsZeroOnTimeout) {
    EXPECT_EQ(waitReadable(read_end_, 0), 0);
    EXPECT_EQ(waitReadable(read_end_, 1), 0);
}

TEST_F(WaitReadable, WaitsTheMillisecondsItWasGiven) {
    const auto begin = steady_clock::now();
    EXPECT_EQ(waitReadable(read_end_, 20), 0);
    EXPECT_GE(steady_clock::now() - begin, 20ms);
}

// A time-out of a second and more is not all milliseconds of one timeval field.
TEST_F(WaitReadable, WaitsLongerThanASecond) {
    const auto begin = steady_clock::now();
    EXPECT_EQ(waitReadable(read_end_, 1010), 0);
    EXPECT_GE(steady_clock::now() - begin, 1010ms);
}

TEST_F(WaitReadable, FailsOnADescriptorThatIsNotOpen) {
    const int number = read_end_;
    close(number);
    const int result = waitReadable(number, 0);
    const int error = errno;
    ASSERT_NE(read_end_ = open("/dev/null", O_RDONLY), -1);  // for TearDown
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EBADF);
}

TEST_F(WaitReadable, FailsOnANegativeDescriptor) {
    errno = 0;
    EXPECT_EQ(waitReadable(-1, 60000), -1);
    EXPECT_EQ(errno, EBADF);
}

// select cannot watch such a descriptor, bytes waiting or not.
TEST_F(WaitReadable, FailsOnADescriptorBeyondFdSetsize) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit raised = {FD_SETSIZE + 8, limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &raised) != 0)
        GTEST_SKIP() << "descriptors above FD_SETSIZE are not allowed here";
    const int high = fcntl(read_end_, F_DUPFD, FD_SETSIZE);
    send();
    errno = 0;
    const int result = waitReadable(high, 0);
    const int error = errno;
    close(high);
    setrlimit(RLIMIT_NOFILE, &limit);
    ASSERT_GE(high, FD_SETSIZE);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EINVAL);
}

// A bridge without audio stands in this wait nearly all the time.
TEST_F(WaitReadable, LetsAnInterruptActInTheMiddle) {
    const InterruptWatch watch;
    struct sigaction old {};
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) { raise(SIGINT); };
    ASSERT_EQ(sigaction(SIGALRM, &interrupt, &old), 0);
    const itimerval soon = {{0, 0}, {0, 20000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &soon, nullptr), 0);
    EXPECT_EQ(waitReadable(read_end_, 60000), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(watch.acted(), 1);
    sigaction(SIGALRM, &old, nullptr);
}

TEST(SystemErrorText, IsTheSystemsOwnWhateverHasFailedSince) {
    errno = EXDEV;
    EXPECT_EQ(systemErrorText(ENOENT), "No such file or directory");
    EXPECT_EQ(systemErrorText(EPIPE), "Broken pipe");
    EXPECT_EQ(systemErrorText(ECONNREFUSED), "Connection refused");
    EXPECT_EQ(systemErrorText(4095), "Unknown error 4095");
}

}  // namespace
