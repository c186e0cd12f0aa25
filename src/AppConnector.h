// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_APPCONNECTOR_H
#define TOLVANEV_APPCONNECTOR_H

#include <sys/types.h>

#include <stdexcept>
#include <string>

#include "AppConnectorInterface.h"

// what() is "[AppConnectorError] " and the message.
class AppConnectorError : public std::runtime_error {
  public:
    explicit AppConnectorError(const std::string& message)
        : std::runtime_error("[AppConnectorError] " + message) {}
};

// One engine child process and the two pipes to it: we feed its standard input and read its
// standard output. Owned by the engine controller, which decides what the bytes mean.
//
// Every failed system call throws AppConnectorError with the system's text; what had changed by
// then stays changed. A child that dies is not noticed: read then succeeds with no bytes, and a
// write raises SIGPIPE, which ends the whole process.
class AppConnector : public AppConnectorInterface {
  public:
    AppConnector() = default;
    AppConnector(const AppConnector&) = delete;
    AppConnector& operator=(const AppConnector&) = delete;
    // Finalizes; a failure is logged, not thrown.
    virtual ~AppConnector();

    bool initialize() override;  // does nothing; true
    // Starts app (a path, not searched for) with arg as its only argument. An open connector is
    // finalized first. A program that cannot be run shows only as the end of its output.
    void launch(const std::string& app, const std::string& arg) override;
    // One write of size bytes; 0. Waits while the pipe is full. A short write is not noticed.
    int write(const char* block, unsigned int size) override;
    // Waits up to timeout ms. 1: nothing came, block untouched. 0: one read of up to size bytes.
    // Kept: how many bytes came is not told, not even at the end of the child's output; the caller
    // passes a zeroed block and finds in it whatever came.
    int read(char* block, unsigned int size, unsigned int timeout) override;
    // Ends the child with SIGTERM, waits for it without limit, closes the pipes; true. Harmless
    // when nothing is open.
    bool finalize() override;
    bool isOpen() const;

  private:
    [[noreturn]] void runChild(const std::string& app, const std::string& arg);

    bool open_flag_ = false;  // a child was started and its pipes are open
    pid_t child_pid_ = 0;
    int parent_to_child_[2] = {-1, -1};  // [READ_END] the child's input, [WRITE_END] ours
    int child_to_parent_[2] = {-1, -1};  // [READ_END] ours, [WRITE_END] the child's output
    int process_type_ = -1;              // side of the fork: 1 parent, 0 child, -1 never launched
};

#endif
