// SPDX-License-Identifier: MIT
// The engine process: how it is started, what it inherits, how it is ended.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio_ext.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "AppConnector.h"
#include "app_connector_fixture.h"
#include "error_text.h"
#include "faults.h"
#include "log_capture.h"
#include "scoped_descriptor.h"
#include "wait_until.h"

namespace {

using faults::Call;

constexpr const char* MISSING_PROGRAM = "/nonexistent/engine";

TEST_F(AppConnectorTest, TheChildGetsItsPathAsNameAndOneArgument) {
    connector_.launch("/bin/cat", "/proc/self/cmdline");
    using namespace std::string_literals;
    EXPECT_EQ(read(32, 10000).block, "/bin/cat\0/proc/self/cmdline\0----"s);
}

TEST_F(AppConnectorTest, TheProgramIsNotSearchedFor) {
    connector_.launch("echo", "found");
    EXPECT_EQ(read(5, 10000).block, "-----");
}

TEST_F(AppConnectorTest, AMissingProgramReadsAsEndOfOutput) {
    connector_.launch(MISSING_PROGRAM, "settings");
    EXPECT_TRUE(connector_.isOpen());
    const ReadResult result = read(4, 10000);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.block, "----");
}

TEST_F(AppConnectorTest, AMissingProgramEndsTheChildWithStatusZero) {
    connector_.launch(MISSING_PROGRAM, "settings");
    ASSERT_TRUE(waitUntil([] { return endedChild().si_pid != 0; }));
    EXPECT_EQ(endedChild().si_code, CLD_EXITED);
    EXPECT_EQ(endedChild().si_status, 0);
}

// The copy of our output buffer in the child must not be flushed into the pipe, where it would
// look like output of the engine: the child ends by _exit.
TEST_F(AppConnectorTest, AMissingProgramLeavesOurBufferedOutputAlone) {
    fflush(stdout);
    fputs("pending", stdout);
    connector_.launch(MISSING_PROGRAM, "settings");
    const ReadResult result = read(7, 10000);
    __fpurge(stdout);
    EXPECT_EQ(result.block, "-------");
}

TEST_F(AppConnectorTest, FinalizeEndsAndReapsTheChild) {
    launch();
    const pid_t pid = engineId();
    EXPECT_TRUE(connector_.finalize());
    EXPECT_FALSE(connector_.isOpen());
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppConnectorTest, ASecondFinalizeDoesNothing) {
    launch();
    connector_.finalize();
    EXPECT_TRUE(connector_.finalize());
    EXPECT_EQ(faults::callsOf(Call::KILL), 1);
}

TEST_F(AppConnectorTest, FinalizeTakesAChildThatEndedByItself) {
    launch("exit_after 0\n");
    ASSERT_TRUE(waitUntil([] { return endedChild().si_pid != 0; }));
    EXPECT_TRUE(connector_.finalize());
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppConnectorTest, TheSecondLaunchEndsTheFirstChild) {
    launch();
    const pid_t first = engineId();
    launch();
    EXPECT_EQ(kill(first, 0), -1);
    EXPECT_TRUE(engine_.hasLogged("start", 2));
    EXPECT_NE(engine_.pids().back(), first);
}

TEST_F(AppConnectorTest, AFinalizedConnectorCanBeLaunchedAgain) {
    launch();
    connector_.finalize();
    launch("emit 0\nsilent\n");
    EXPECT_TRUE(connector_.isOpen());
    EXPECT_EQ(read(FRAME, 10000).status, 0);
}

TEST_F(AppConnectorTest, TheDestructorFinalizes) {
    {
        AppConnector other;
        other.launch(SCRIPTED_ENGINE, engine_.settings());
    }
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppConnectorTest, AFailingDestructorLogsAndDoesNotThrow) {
    const auto before = openDescriptors();
    LogCapture log;
    {
        AppConnector other;
        other.launch(SCRIPTED_ENGINE, engine_.settings());
        faults::failNext(Call::KILL, EPERM);
    }
    EXPECT_EQ(log.lines(),
              std::vector{withSystemText(
                  "ERROR: [AppConnectorError] Kill child process failed. error : ", EPERM)});
    EXPECT_EQ(closeOpenedSince(before), 2u);  // the end of its input ends the child
    EXPECT_GT(waitpid(-1, nullptr, 0), 0);
}

TEST_F(AppConnectorTest, AFailingFirstPipeThrows) {
    EXPECT_EQ(
        errorWhen(Call::PIPE, EMFILE, [this] { launch(); }),
        withSystemText("[AppConnectorError] Parent to child pipe create failed. error : ", EMFILE));
    EXPECT_FALSE(connector_.isOpen());
}

TEST_F(AppConnectorTest, AFailingSecondPipeThrowsAndLeavesTheFirstOpen) {
    const auto before = openDescriptors();
    EXPECT_EQ(
        errorWhen(
            Call::PIPE, ENFILE, [this] { launch(); }, 1),
        withSystemText("[AppConnectorError] Child to parent pipe create failed. error : ", ENFILE));
    EXPECT_EQ(closeOpenedSince(before), 2u);
}

TEST_F(AppConnectorTest, AFailingForkThrowsWithoutSystemTextAndLeavesBothPipesOpen) {
    const auto before = openDescriptors();
    EXPECT_EQ(errorWhen(Call::FORK, EAGAIN, [this] { launch(); }),
              "[AppConnectorError] fork failed.");
    EXPECT_FALSE(connector_.isOpen());
    EXPECT_EQ(closeOpenedSince(before), 4u);
}

TEST_F(AppConnectorTest, AFailingKillThrowsAndLeavesTheConnectorOpen) {
    launch();
    EXPECT_EQ(errorWhen(Call::KILL, EPERM, [this] { connector_.finalize(); }),
              withSystemText("[AppConnectorError] Kill child process failed. error : ", EPERM));
    EXPECT_TRUE(connector_.isOpen());
    EXPECT_TRUE(connector_.finalize());
}

TEST_F(AppConnectorTest, AFailingWaitForTheChildThrowsAndLeavesTheConnectorOpen) {
    launch();
    EXPECT_EQ(errorWhen(Call::WAITPID, EINTR, [this] { connector_.finalize(); }),
              withSystemText("[AppConnectorError] Wait Pid failed. error : ", EINTR));
    EXPECT_TRUE(connector_.isOpen());
    EXPECT_TRUE(connector_.finalize());
}

TEST_F(AppConnectorTest, ARelaunchPassesOnTheErrorOfItsFinalize) {
    launch();
    EXPECT_EQ(errorWhen(Call::KILL, EPERM, [this] { launch(); }),
              withSystemText("[AppConnectorError] Kill child process failed. error : ", EPERM));
}

TEST_F(AppConnectorTest, TheChildKeepsEveryDescriptorOfOurs) {
    const ScopedDescriptor ours(dup(STDERR_FILENO));
    launch();
    const std::string folder = "/proc/" + std::to_string(engineId()) + "/fd/";
    EXPECT_TRUE(std::filesystem::is_symlink(folder + std::to_string(ours.get())));
}

// How many descriptors of a process lead where this one of it does.
long descriptorsOf(pid_t pid, int fd) {
    const std::filesystem::path folder = "/proc/" + std::to_string(pid) + "/fd";
    const auto target = std::filesystem::read_symlink(folder / std::to_string(fd));
    const std::filesystem::directory_iterator all(folder);
    return std::count_if(begin(all), end(all), [&](const auto& entry) {
        std::error_code gone;  // the process may be closing its log
        return std::filesystem::read_symlink(entry, gone) == target;
    });
}

TEST_F(AppConnectorTest, TheChildKeepsThePipeEndsThatItDuplicated) {
    launch();
    EXPECT_EQ(descriptorsOf(engineId(), STDIN_FILENO), 2);
    EXPECT_EQ(descriptorsOf(engineId(), STDOUT_FILENO), 2);
}

// The child side of a launch whose dup2 fails. A forked copy of this test must never return into
// the test program: it ends here, and its exit status says whether the check held.
class AppConnectorChild : public AppConnectorTest {
  protected:
    template <typename Check>
    int statusOfChild(int skip, Check check) {
        faults::failNext(Call::DUP2, EBUSY, {.skip = skip});
        const pid_t parent = getpid();
        const std::string error = errorOf<AppConnectorError>([this] { launch(); });
        if (getpid() != parent)
            _exit(check(error) ? 7 : 8);
        EXPECT_EQ(error, "");
        waitUntil([] { return endedChild().si_pid != 0; });
        return endedChild().si_status;
    }

    static bool isDup2Error(const std::string& error) {
        return error == withSystemText("[AppConnectorError] Pipe dup2 failed. error : ", EBUSY);
    }
};

TEST_F(AppConnectorChild, AFailingInputRedirectionThrowsInTheChild) {
    EXPECT_EQ(statusOfChild(0, isDup2Error), 7);
}

TEST_F(AppConnectorChild, AFailingOutputRedirectionThrowsInTheChild) {
    EXPECT_EQ(statusOfChild(1, isDup2Error), 7);
}

TEST_F(AppConnectorChild, FinalizeInTheChildClosesItsEndsThoughNothingIsOpen) {
    const auto closesItsEnds = [this](const std::string&) {
        const auto before = openDescriptors().size();
        return !connector_.isOpen() && connector_.finalize() &&
               openDescriptors().size() == before - 2;
    };
    EXPECT_EQ(statusOfChild(0, closesItsEnds), 7);
}

}  // namespace
