// SPDX-License-Identifier: MIT
// A child process that leaves nothing behind: it runs in a session and process group of its own,
// with a pipe each for standard input, output and error, and is killed when this process dies.
// Everything that it starts belongs to its group and is reaped here, also after it has ended
// itself, since this process is the reaper of all its descendants (a "subreaper").
//
// Owned by the supervisor (the bridge, with its engines as the rest of the group) or by an output
// (a command). Nothing here waits. The destructor kills the whole group.
#ifndef TOLVANEV_NODE_CHILD_H
#define TOLVANEV_NODE_CHILD_H

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Loop.h"

namespace node {

// How a process ended.
struct Ending {
    pid_t pid = 0;
    int status = 0;            // exit status
    int signal = 0;            // 0 = none
    std::string text() const;  // "status 0", "SIGPIPE"
};

// Collects the processes that children leave behind. One for each process; outlives every Child.
class Reaper {
  public:
    // complain: is told of processes that not even SIGKILL has ended; empty = nobody is.
    explicit Reaper(Loop& loop, std::function<void(const std::string&)> complain = nullptr);
    Reaper(const Reaper&) = delete;
    Reaper& operator=(const Reaper&) = delete;

  private:
    friend class Child;
    void collect();

    std::function<void(const std::string&)> complain_;
    std::map<pid_t, class Child*> children_;  // that libuv reaps, by process
    std::map<pid_t, class Child*> groups_;    // whose strays are reaped here, by group
    SignalWatch watch_;
};

// Those that are empty are not called. Only on_gone may destroy the Child.
struct ChildEvents {
    PipeReader::OnBytes on_output;
    PipeReader::OnBytes on_errors;
    std::function<void()> on_output_end;
    // The process itself; what it has written by then has been handed on, as has what the others
    // have written ahead of on_gone.
    std::function<void(const Ending&)> on_exit;
    std::function<void(const Ending&)> on_stray;  // another process of its group
    // Nothing of the group is left. Comes after on_exit, possibly within the same call.
    std::function<void()> on_gone;
};

class Child {
  public:
    static constexpr milliseconds GIVE_UP{2000};

    // Starts it; throws a NodeError that names the program. environment: "NAME=value", in addition
    // to ours or in the place of what has that name there.
    Child(Loop& loop, Reaper& reaper, const std::vector<std::string>& words,
          const std::vector<std::string>& environment, ChildEvents events);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    pid_t pid() const { return pid_; }
    bool exited() const { return exited_; }
    bool gone() const { return gone_; }
    void signal(int number);  // to the process itself; nothing when it has ended
    // To all that is left. What SIGKILL has not ended after GIVE_UP, because it hangs in the system
    // or nobody collects it, is complained of and taken for gone.
    void signalGroup(int number);

    // Queues bytes for its standard input; false when that is closed. Bytes that are waiting when
    // the child closes it are lost.
    bool write(std::string bytes);
    size_t waitingInput() const;  // bytes queued here
    size_t unreadInput() const;   // bytes in the pipe that it has not read
    void closeInput();            // behind what is queued; a second call does nothing

  private:
    friend class Reaper;
    void start(Loop& loop, const std::vector<std::string>& words,
               const std::vector<std::string>& environment, const int (&ends)[3]);
    void exitedWith(const Ending& ending);
    void takeRest();
    void lookForRest();

    Reaper& reaper_;
    ChildEvents events_;
    Handle<uv_process_t> process_;
    Handle<uv_pipe_t> input_;  // null = closed
    bool closing_ = false;     // as soon as all that is queued is written
    std::unique_ptr<PipeReader> output_;
    std::unique_ptr<PipeReader> errors_;
    Timer rest_timer_;  // looks for what is left of the group, where no signal tells
    pid_t pid_ = 0;
    std::optional<Clock::time_point> killed_;  // when the group was first sent SIGKILL
    bool exited_ = false;
    bool gone_ = false;
};

}  // namespace node

#endif
