// SPDX-License-Identifier: MIT
#include "ExecCommand.h"

#include <signal.h>

#include <algorithm>
#include <utility>

#include "LineReader.h"
#include "TimeText.h"
#include "Wav.h"

namespace node {

namespace {

constexpr size_t MOST_OUTPUT = 1 << 20;  // bytes of output that are looked at

// What a shell answers for a command that it cannot start.
enum ShellStatus { NOT_EXECUTABLE = 126, NOT_FOUND = 127 };

std::string inWords(const Ending& ending) {
    if (ending.signal == 0 && ending.status == NOT_FOUND)
        return "the command was not found";
    if (ending.signal == 0 && ending.status == NOT_EXECUTABLE)
        return "the command cannot be executed";
    return "the command ended with " + ending.text();
}

}  // namespace

struct ExecCommand::Job {
    Job(Loop& loop, UtterancePtr of, std::function<void(Job&, const std::string&)> on_line)
        : utterance(std::move(of)),
          limit(loop, [this] { kill(); }),
          output([this, take = std::move(on_line)](const std::string& line) { take(*this, line); }),
          errors([this](const std::string& line) {
              if (!line.empty())
                  last_error = line;
          }) {}

    // Only the last line matters: what floods is not cut into lines.
    void takeErrors(std::string_view bytes) {
        const size_t last = bytes.rfind('\n');
        const size_t before = last == 0 || last == bytes.npos ? last : bytes.rfind('\n', last - 1);
        if (before != bytes.npos) {
            errors.flush();
            bytes.remove_prefix(before);
        }
        errors.read(bytes);
    }
    void giveUntil(Clock::time_point moment, std::string why) {
        end = moment;
        killed_since = std::move(why);
        limit.once(std::chrono::ceil<milliseconds>(
            std::max(moment - Clock::now(), Clock::duration::zero())));
    }
    void kill() {
        killed = true;
        child->signalGroup(SIGKILL);
    }
    // What went wrong; empty = nothing.
    std::string trouble(size_t max_lines) const {
        if (killed)
            return "the command was killed, " + killed_since;
        if (ending.signal != 0 || ending.status != 0)
            return inWords(ending) + (last_error.empty() ? "" : ": \"" + last_error + '"');
        if (lines > max_lines || taken > MOST_OUTPUT)
            return "the command's output was longer than " + std::to_string(max_lines) +
                   " lines or 1 MiB, the rest was dropped";
        return "";
    }

    const UtterancePtr utterance;
    Clock::time_point end;
    std::string killed_since;  // why, when it is killed at the end
    Timer limit;
    LineReader output;
    LineReader errors;
    std::string last_error;
    size_t lines = 0;  // of output, empty ones left out
    size_t taken = 0;  // bytes of output
    bool killed = false;
    Ending ending;
    std::unique_ptr<Child> child;  // the first to go: its events come here
};

ExecCommand::ExecCommand(Loop& loop, Reaper& reaper, const Log& log,
                         const ExecCommandOptions& options, OnText on_text)
    : loop_(loop),
      reaper_(reaper),
      options_(options),
      on_text_(std::move(on_text)),
      warnings_(loop, log, "exec", "utterance") {}

ExecCommand::~ExecCommand() = default;

void ExecCommand::onUtterance(const UtterancePtr& utterance) {
    waiting_.push_back(utterance);
    startNext();
    if (waiting_.size() > options_.max_waiting) {
        waiting_.pop_front();
        warnings_.dropped();
    }
}

void ExecCommand::startNext() {
    while (!waiting_.empty() && running_.size() < options_.max_running) {
        const UtterancePtr utterance = waiting_.front();
        waiting_.pop_front();
        start(utterance);
    }
}

void ExecCommand::start(const UtterancePtr& utterance) {
    auto owned = std::make_unique<Job>(
        loop_, utterance, [this](Job& of, const std::string& line) { takeLine(of, line); });
    Job* const job = owned.get();
    ChildEvents events;
    events.on_output = [this, job](std::string_view bytes) {
        if (job->lines <= options_.max_lines && job->taken <= MOST_OUTPUT)
            job->output.read(bytes);
        job->taken += bytes.size();
    };
    events.on_errors = [job](std::string_view bytes) { job->takeErrors(bytes); };
    events.on_exit = [job](const Ending& ending) {
        job->ending = ending;
        job->child->signalGroup(SIGKILL);
    };
    events.on_gone = [this, job] { ended(*job); };
    try {
        job->child = std::make_unique<Child>(
            loop_, reaper_, std::vector<std::string>{"/bin/sh", "-c", options_.command},
            std::vector<std::string>{"TOLVANEV_UTTERANCE=" + std::to_string(utterance->number),
                                     "TOLVANEV_START=" + isoTime(utterance->start),
                                     "TOLVANEV_SECONDS=" + secondsText(utterance->seconds())},
            std::move(events));
    } catch (const NodeError& error) {
        warnings_.failed(error.what());
        warnings_.dropped();
        return;
    }
    job->child->write(wavImage(*utterance));
    job->child->closeInput();
    job->giveUntil(Clock::now() + options_.time_out,
                   "since it took longer than " +
                       secondsText(std::chrono::duration<double>(options_.time_out).count()) +
                       " s");
    running_.push_back(std::move(owned));
}

void ExecCommand::takeLine(Job& job, std::string line) {
    if (line.ends_with('\r'))
        line.pop_back();
    if (line.empty())
        return;  // a recogniser that has understood nothing
    if (++job.lines <= options_.max_lines)
        on_text_({job.utterance->number, std::move(line)});
}

void ExecCommand::ended(Job& job) {
    job.output.flush();
    job.errors.flush();
    const std::string trouble = job.trouble(options_.max_lines);
    running_.remove_if([&job](const auto& one) { return one.get() == &job; });
    if (trouble.empty())
        warnings_.worked();
    else
        warnings_.failed(trouble);
    startNext();
}

void ExecCommand::finish() {
    warnings_.dropped(waiting_.size());
    waiting_.clear();
    warnings_.finish();
    const auto end = Clock::now() + options_.grace;
    for (const auto& job : running_) {
        if (end < job->end)
            job->giveUntil(end, "since the node ends");
    }
}

}  // namespace node
