// SPDX-License-Identifier: MIT
// tolvanev-node: from the command line to one running Node with its outputs. docs/node.md explains
// it to who runs a robot.
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "Ask.h"
#include "Control.h"
#include "EventLog.h"
#include "ExecCommand.h"
#include "FrameOutput.h"
#include "Metrics.h"
#include "Node.h"
#include "Options.h"
#include "RepeatFilter.h"
#include "WavFiles.h"

namespace {

using namespace node;

constexpr size_t UNWRITTEN_MESSAGES = 1 << 18;  // bytes; what nobody reads is dropped
constexpr milliseconds LAST_WORDS{500};         // for standard error, at the end
constexpr milliseconds COMMANDS{500};           // for those under way, at the end
constexpr milliseconds LAST_WORDS_PERIOD{5};    // looks whether they have gone out

// The node with all that the command line asks for. Destroyed in the reverse order: outputs go
// before what they stand on.
class Program {
  public:
    Program(Loop& loop, const Options& options)
        : loop_(loop),
          options_(options),
          errors_(Sink::onDescriptor(loop, STDERR_FILENO, UNWRITTEN_MESSAGES)),
          log_([this](const Message& message) { say(message); }),
          node_(loop, log_, options.node),
          interrupt_(loop, SIGINT, [this] { stop("SIGINT"); }),
          terminate_(loop, SIGTERM, [this] { stop("SIGTERM"); }),
          last_words_(loop, [this] { lookForLastWords(); }) {
        struct sigaction inherited {};
        if (sigaction(SIGHUP, nullptr, &inherited) == 0 && inherited.sa_handler != SIG_IGN)
            hang_up_.emplace(loop, SIGHUP, [this] { stop("SIGHUP"); });
        addOutputs();
    }

    // Returns when the node has ended, with its exit status.
    int run() {
        node_.start();
        loop_.run();
        return 0;
    }
    bool idle() const { return errors_->idle() && !unfinished_; }

  private:
    void addOutputs();
    void addExec();
    void say(const Message& message);
    void stop(const std::string& why);
    void lookForLastWords();

    Loop& loop_;
    const Options& options_;
    std::unique_ptr<Sink> errors_;
    const bool journal_ = journalReads();
    RepeatFilter filter_;
    Log log_;
    Node node_;
    EventLog* events_ = nullptr;  // the node's; null = not wanted
    bool unfinished_ = false;
    SignalWatch interrupt_;
    SignalWatch terminate_;
    std::optional<SignalWatch> hang_up_;  // empty = started to outlive its terminal
    Timer last_words_;
    Clock::time_point give_up_;  // on them
    std::unique_ptr<Control> control_;
};

// Events come first: they hear of a thing before others make something of it.
void Program::addOutputs() {
    if (!options_.events.empty()) {
        EventLogOptions settings;
        settings.path = options_.events;
        auto events = std::make_unique<EventLog>(loop_, log_, settings,
                                                 [this] { return node_.status().dropped; });
        events_ = events.get();
        node_.add(std::move(events));
    }
    if (!options_.frames.empty()) {
        FrameOutputOptions settings;
        settings.path = options_.frames;
        node_.add(std::make_unique<FrameOutput>(loop_, log_, settings));
    }
    if (!options_.wav.empty()) {
        WavFilesOptions settings;
        settings.folder = options_.wav;
        settings.max_files = options_.wav_files;
        settings.max_bytes = options_.wav_megabytes * 1000000;
        node_.add(std::make_unique<WavFiles>(loop_, log_, settings,
                                             [this](uint64_t number, const std::string& path) {
                                                 if (events_)
                                                     events_->onWav(number, path);
                                             }));
    }
    if (!options_.exec.empty())
        addExec();
    if (!options_.metrics.empty()) {
        MetricsOptions settings;
        settings.path = options_.metrics;
        node_.add(
            std::make_unique<Metrics>(loop_, log_, settings, [this] { return node_.status(); }));
    }
    if (!options_.control.empty())
        control_ = std::make_unique<Control>(loop_, log_, node_, options_.control,
                                             [this] { stop("order"); });
}

void Program::addExec() {
    ExecCommandOptions settings;
    settings.command = options_.exec;
    settings.max_running = options_.exec_jobs;
    settings.max_waiting = options_.exec_queue;
    settings.grace = COMMANDS;
    settings.time_out = milliseconds(std::llround(options_.exec_timeout * 1000));
    node_.add(std::make_unique<ExecCommand>(
        loop_, node_.reaper(), log_, settings,
        [this](const RecognisedText& text) { node_.tellText(text); }));
}

void Program::say(const Message& message) {
    if (!message.from_bridge)
        node_.tellMessage(message);
    if (message.level > options_.log_level)
        return;
    Message shown = message;
    if (message.from_bridge) {
        const auto text = filter_.pass(message.text, Clock::now());
        if (!text)
            return;
        shown.text = *text;
    }
    errors_->write(lineOf(shown, journal_, std::chrono::system_clock::now()));
}

// A second signal changes nothing: every wait behind it is bounded.
void Program::stop(const std::string& why) {
    if (node_.stopping())
        return;
    log_.info("stopping: " + why);
    node_.stop([this] {
        unfinished_ = !node_.outputsIdle();
        log_.info("stopped");
        control_.reset();  // its socket file goes also when the program ends without more ado
        give_up_ = Clock::now() + LAST_WORDS;
        last_words_.every(LAST_WORDS_PERIOD);
        lookForLastWords();
    });
}

void Program::lookForLastWords() {
    if (errors_->idle() || Clock::now() >= give_up_)
        loop_.stop();
}

// What is opened first takes the lowest numbers: a socket must not become standard error.
void holdStandardDescriptors() {
    int fd = -1;
    do
        fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const int status = parseOptions(argc, argv, options);
    if (status >= 0)
        return status;
    holdStandardDescriptors();
    if (!options.ask.empty())
        return ask(options.ask, options.words);
    signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is a full disk to us
    signal(SIGPIPE, SIG_IGN);  // a reader that goes is an error of that write
    // Utterances come and go for years: their memory goes back to the system, and jobs have no
    // heaps of their own.
    mallopt(M_MMAP_THRESHOLD, 1 << 16);
    mallopt(M_ARENA_MAX, 1);
    setenv("UV_THREADPOOL_SIZE", "8", 0);  // each output has a job at most, and a disk may hang
    try {
        Loop loop;
        Program program(loop, options);
        const int result = program.run();
        if (!program.idle())
            _exit(result);  // a job may hang in the system; the loop would wait for it
        return result;
    } catch (const NodeError& error) {
        std::cerr << "tolvanev-node: " << error.what() << "\n";
        return 1;
    }
}
