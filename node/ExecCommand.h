// SPDX-License-Identifier: MIT
// --exec: each utterance, as a WAV file, on the standard input of a command that is started for it;
// each line of its standard output is recognised text. One line plugs a recogniser in.
//
// The command gets TOLVANEV_UTTERANCE (number), TOLVANEV_START (time of START) and
// TOLVANEV_SECONDS (length). When it ends, so does what it has left running. Nothing here waits;
// commands that are slower than speech lose the oldest utterances.
#ifndef TOLVANEV_NODE_EXEC_COMMAND_H
#define TOLVANEV_NODE_EXEC_COMMAND_H

#include <deque>
#include <list>

#include "Child.h"
#include "OutputWarnings.h"

namespace node {

struct ExecCommandOptions {
    std::string command;           // for /bin/sh -c
    size_t max_running = 1;        // commands at once
    size_t max_waiting = 4;        // utterances without one; then the oldest is dropped
    milliseconds time_out{30000};  // of a command, which is killed then
    milliseconds grace{600};       // of those that run when the node ends
    size_t max_lines = 100;        // of output; LineReader has the longest
};

class ExecCommand : public Listener {
  public:
    using OnText = std::function<void(const RecognisedText&)>;
    ExecCommand(Loop& loop, Reaper& reaper, const Log& log, const ExecCommandOptions& options,
                OnText on_text);
    ~ExecCommand() override;  // kills what runs

    void onUtterance(const UtterancePtr& utterance) override;
    void finish() override;
    bool idle() const override { return running_.empty() && waiting_.empty(); }
    uint64_t dropped() const override { return warnings_.totalDropped(); }
    std::string name() const override { return warnings_.name(); }

  private:
    struct Job;
    void startNext();
    void start(const UtterancePtr& utterance);
    void takeLine(Job& job, std::string line);
    void ended(Job& job);

    Loop& loop_;
    Reaper& reaper_;
    const ExecCommandOptions options_;
    const OnText on_text_;
    OutputWarnings warnings_;
    std::deque<UtterancePtr> waiting_;
    std::list<std::unique_ptr<Job>> running_;
};

}  // namespace node

#endif
