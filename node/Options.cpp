// SPDX-License-Identifier: MIT
#include "Options.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <iostream>
#include <sstream>

namespace node {

namespace {

constexpr const char* ABOUT =
    "Starts the bridge, keeps it running, and hands on what it hears.\n\n"
    "    tolvanev-node [OPTIONS] -- Tolvanev [BRIDGE OPTIONS]\n"
    "    tolvanev-node --ask PATH status|play_sound|restart|stop\n";
constexpr const char* FOOTER = "docs/node.md explains each output and what it writes.";

// Options that count seconds or milliseconds, with a default.
struct Times {
    double silence = 10;
    double waiting = 1800;
    double play_sound = 60;
    double longest = 60;
    unsigned preroll = 200;
};

// The help text gives the unit and the default; a range is told when it is left.
template <typename T>
CLI::Validator within(T lowest, T highest) {
    return CLI::Validator(
        [lowest, highest](std::string& text) -> std::string {
            T value{};
            // What is not a number is in no range.
            if (CLI::detail::lexical_cast(text, value) && value >= lowest && value <= highest)
                return "";
            std::ostringstream wrong;
            wrong << text << " is not from " << lowest << " to " << highest;
            return wrong.str();
        },
        "");
}

milliseconds fromSeconds(double seconds) {
    return milliseconds(std::llround(seconds * 1000));
}

void declareOutputs(CLI::App& app, Options& options, Times& times) {
    const char* const group = "Outputs, all at once if wanted";
    app.add_option("--wav", options.wav, "each utterance as a WAV file in this folder")
        ->type_name("DIR")
        ->group(group);
    app.add_option("--wav-files", options.wav_files, "WAV files kept; 0: any number")
        ->type_name("N")
        ->capture_default_str()
        ->group(group);
    app.add_option("--wav-megabytes", options.wav_megabytes, "megabytes of WAV files kept; 0: any")
        ->type_name("N")
        ->capture_default_str()
        ->group(group);
    app.add_option("--exec", options.exec,
                   "each utterance as a WAV file on the standard input of this shell command, "
                   "whose output lines are recognised text")
        ->type_name("COMMAND")
        ->group(group);
    app.add_option("--exec-jobs", options.exec_jobs, "commands at once")
        ->check(within(1, 64))
        ->type_name("N")
        ->capture_default_str()
        ->group(group);
    app.add_option("--exec-queue", options.exec_queue,
                   "utterances that wait for a command; then the oldest is dropped")
        ->check(within(1, 1000))
        ->type_name("N")
        ->capture_default_str()
        ->group(group);
    app.add_option("--exec-timeout", options.exec_timeout, "seconds that a command may take")
        ->check(within(0.1, 86400.0))
        ->type_name("SECONDS")
        ->capture_default_str()
        ->group(group);
    app.add_option("--frames", options.frames, "the bridge's frames as they are")
        ->type_name("FILE|FIFO|-")
        ->group(group);
    app.add_option("--events", options.events, "a JSON object a line for each event")
        ->type_name("FILE|FIFO|-")
        ->group(group);
    app.add_option("--metrics", options.metrics, "Prometheus text, renewed once a second")
        ->type_name("FILE")
        ->group(group);
    app.add_option("--preroll", times.preroll, "milliseconds from before START in each utterance")
        ->check(within(0, 10000))
        ->type_name("MS")
        ->capture_default_str()
        ->group(group);
    app.add_option("--utterance-max", times.longest,
                   "seconds; a longer utterance is handed on in parts")
        ->check(within(1.0, 600.0))
        ->type_name("SECONDS")
        ->capture_default_str()
        ->group(group);
}

void declareOrders(CLI::App& app, Options& options, Times& times) {
    const char* const group = "Orders";
    app.add_option("--control", options.control, "socket on which orders are taken")
        ->type_name("PATH")
        ->group(group);
    app.add_option("--play-sound-limit", times.play_sound,
                   "seconds after which a sound counts as ended; 0: never")
        ->check(within(0.0, 86400.0))
        ->type_name("SECONDS")
        ->capture_default_str()
        ->group(group);
    app.add_option("--ask", options.ask, "asks the node with this --control socket")
        ->type_name("PATH")
        ->group(group);
}

void declareWatch(CLI::App& app, Options& options, Times& times) {
    const char* const group = "When the bridge is ended and started again";
    app.add_option("--watchdog", times.silence,
                   "seconds with both peers but without a sign of life; 0: never")
        ->check(within(0.0, 86400.0))
        ->type_name("SECONDS")
        ->capture_default_str()
        ->group(group);
    app.add_option("--max-rate", options.node.watchdog.most_frames,
                   "frames a second, for five seconds; audio has 100; 0: never")
        ->check(within(0.0, 1e9))
        ->type_name("FRAMES")
        ->capture_default_str()
        ->group(group);
    app.add_option("--max-wait", times.waiting,
                   "seconds without its peers, each attempt costs it a descriptor; 0: never")
        ->check(within(0.0, 1e9))
        ->type_name("SECONDS")
        ->capture_default_str()
        ->group(group);
}

Level levelOf(const std::string& word) {
    return word == "err"    ? Level::ERROR
           : word == "warn" ? Level::WARNING
           : word == "info" ? Level::INFO
                            : Level::DEBUG;
}

// What the parser cannot know; empty when all is well.
std::string mistake(const Options& options) {
    if (!options.ask.empty())
        return "";
    if (options.words.empty())
        return "no bridge; put its command line behind --";
    if (options.metrics == "-")
        return "--metrics takes a file, which is renewed each second";
    if (options.frames == "-" && options.events == "-")
        return "--frames and --events cannot both have standard output";
    return "";
}

}  // namespace

int parseOptions(int argc, const char* const* argv, Options& options) {
    CLI::App app(ABOUT, "tolvanev-node");
    app.footer(FOOTER);
    app.set_version_flag("--version", "tolvanev-node " TOLVANEV_NODE_VERSION);
    Times times;
    declareOutputs(app, options, times);
    declareOrders(app, options, times);
    declareWatch(app, options, times);
    std::string level = "info";
    app.add_option("--log-level", level, "err, warn, info or debug")
        ->check(CLI::IsMember({"err", "warn", "info", "debug"}).description(""))
        ->type_name("LEVEL")
        ->capture_default_str();
    app.add_option("words", options.words, "behind --: the bridge and its options")->type_name("");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& told) {  // --help, --version
        return app.exit(told);
    } catch (const CLI::ParseError& error) {
        std::cerr << "tolvanev-node: " << error.what() << "; see --help\n";
        return 2;
    }
    options.log_level = levelOf(level);
    options.node.watchdog.silence = fromSeconds(times.silence);
    options.node.watchdog.waiting = fromSeconds(times.waiting);
    options.node.play_sound_limit = fromSeconds(times.play_sound);
    options.node.cutter.preroll = milliseconds(times.preroll);
    options.node.cutter.longest = fromSeconds(times.longest);
    options.node.bridge = options.words;
    const std::string wrong = mistake(options);
    if (wrong.empty())
        return -1;
    std::cerr << "tolvanev-node: " << wrong << "; see --help\n";
    return 2;
}

}  // namespace node
