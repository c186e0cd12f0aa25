// SPDX-License-Identifier: MIT
#include "AppConnector.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "Interrupt.h"
#include "common.h"
#include "log.h"

namespace {

enum PipeEnd { READ_END = 0, WRITE_END = 1 };
enum ProcessType { CHILD = 0, PARENT = 1 };

[[noreturn]] void fail(const char* text, int error_number) {
    throw AppConnectorError(text + systemErrorText(error_number));
}

void closeEnd(int& fd) {
    close(fd);
    fd = -1;
}

}  // namespace

AppConnector::~AppConnector() {
    try {
        AppConnector::finalize();
    } catch (const std::exception& error) {
        LOG_AT(logERROR) << error.what();
    }
}

bool AppConnector::initialize() {
    return true;
}

void AppConnector::launch(const std::string& app, const std::string& arg) {
    if (open_flag_)
        finalize();
    heedInterrupt();  // no engine starts that would have to be stopped at once
    if (pipe(parent_to_child_) == -1)
        fail("Parent to child pipe create failed. error : ", errno);
    // Kept: when the second pipe fails, the first one stays open.
    if (pipe(child_to_parent_) == -1)
        fail("Child to parent pipe create failed. error : ", errno);
    const pid_t pid = fork();
    if (pid < 0)
        throw AppConnectorError("fork failed.");
    if (pid == 0)
        runChild(app, arg);

    process_type_ = PARENT;
    closeEnd(child_to_parent_[WRITE_END]);
    closeEnd(parent_to_child_[READ_END]);
    child_pid_ = pid;
    open_flag_ = true;
}

// Kept: the engine inherits every other descriptor of ours, the pipes of the engine started before
// it included, and an error here is thrown inside the child.
void AppConnector::runChild(const std::string& app, const std::string& arg) {
    process_type_ = CHILD;
    closeEnd(child_to_parent_[READ_END]);
    closeEnd(parent_to_child_[WRITE_END]);
    if (dup2(parent_to_child_[READ_END], fileno(stdin)) == -1)
        fail("Pipe dup2 failed. error : ", errno);
    if (dup2(child_to_parent_[WRITE_END], fileno(stdout)) == -1)
        fail("Pipe dup2 failed. error : ", errno);
    execl(app.c_str(), app.c_str(), arg.c_str(), static_cast<char*>(nullptr));
    // Kept: silent, status 0. _exit, because the parent's static objects live in this copy too,
    // and must not be destroyed here.
    _exit(0);
}

// Kept: a write to an engine that has ended raises SIGPIPE, which ends the whole process.
// Kept: a short write is a success; the rest of the frame is never sent.
int AppConnector::write(const char* block, unsigned int size) {
    if (interruptible([&] { return ::write(parent_to_child_[WRITE_END], block, size); }) == -1)
        fail("Pipe write failed. error : ", errno);
    return 0;
}

int AppConnector::read(char* block, unsigned int size, unsigned int timeout) {
    const int ready = waitReadable(child_to_parent_[READ_END], timeout);
    if (ready == -1)
        fail("Pipe select failed. error : ", errno);
    if (ready == 0)
        return 1;
    if (interruptible([&] { return ::read(child_to_parent_[READ_END], block, size); }) == -1)
        fail("Pipe read failed. error : ", errno);
    return 0;
}

bool AppConnector::finalize() {
    if (open_flag_ && process_type_ == PARENT) {
        if (kill(child_pid_, SIGTERM) == -1)
            fail("Kill child process failed. error : ", errno);
        // Not interruptible: an interrupt would finalize too, and perhaps signal a child that is
        // collected by then. It acts as soon as this engine is done with.
        if (waitpid(child_pid_, nullptr, 0) == -1)
            fail("Wait Pid failed. error : ", errno);
        closeEnd(child_to_parent_[READ_END]);
        closeEnd(parent_to_child_[WRITE_END]);
        open_flag_ = false;
        heedInterrupt();
        return true;
    }
    if (process_type_ != CHILD)
        return true;
    closeEnd(child_to_parent_[WRITE_END]);
    closeEnd(parent_to_child_[READ_END]);
    open_flag_ = false;
    return true;
}

bool AppConnector::isOpen() const {
    return open_flag_;
}
