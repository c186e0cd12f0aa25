// SPDX-License-Identifier: MIT
// The default engine: a filter from standard input to standard output, in one of two roles.
#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include "FrameIo.h"
#include "MmseStage.h"
#include "Settings.h"
#include "SpeechActivity.h"
#include "VadStage.h"

namespace {

constexpr int GOOD = 0;
constexpr int BROKEN = 1;         // the run failed: input cut, output closed
constexpr int MISCONFIGURED = 2;  // it never began: bad settings or command line

constexpr char USAGE[] =
    "Usage: tolvanev-engine SETTINGS_FILE\n"
    "       tolvanev-engine --check SETTINGS_FILE\n"
    "       tolvanev-engine --help | --version\n"
    "\n"
    "Reads 324-byte audio frames (16 kHz, 10 ms) from standard input and answers each of them\n"
    "on standard output: with the denoised frame (role mmse) or with a 104-byte frame about\n"
    "voice activity (role vad). The settings file chooses the role.\n"
    "\n"
    "  --check    only say whether the settings file is good\n"
    "\n"
    "Exit status: 0 end of input or all good, 1 input cut or output closed,\n"
    "2 settings file or command line at fault.\n";

// Whoever starts us may have blocked or ignored signals for itself, and that is inherited.
void restoreSignals() {
    std::signal(SIGTERM, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);  // a closed output is reported as an error of write(2)
}

std::unique_ptr<engine::Stage> makeStage(const engine::Settings& settings) {
    const engine::Sink sink = [](std::span<const std::byte> frame) {
        engine::writeFrame(STDOUT_FILENO, frame);
    };
    if (settings.role == engine::Role::MMSE)
        return std::make_unique<engine::MmseStage>(settings.mmse, sink);
    auto activity = std::make_unique<engine::SpeechActivity>(settings.vad);
    return std::make_unique<engine::VadStage>(settings.vad, std::move(activity), sink);
}

int run(const engine::Settings& settings) {
    const auto stage = makeStage(settings);
    engine::AudioFrame frame;
    for (;;) {
        switch (engine::readFrame(STDIN_FILENO, frame)) {
            case engine::ReadResult::FRAME:
                stage->accept(frame);
                break;
            case engine::ReadResult::END:
                stage->finish();
                return GOOD;
            case engine::ReadResult::CUT:
                std::fprintf(stderr, "tolvanev-engine: %s: input ended inside a frame\n",
                             nameOf(settings.role));
                return BROKEN;
        }
    }
}

int start(const std::string& path, bool check_only) {
    engine::Settings settings;
    try {
        settings = engine::loadSettings(path);
    } catch (const engine::SettingsError& error) {
        std::fprintf(stderr, "tolvanev-engine: %s\n", error.what());
        return MISCONFIGURED;
    }
    if (check_only) {
        std::printf("%s: good, role %s\n", path.c_str(), nameOf(settings.role));
        return GOOD;
    }
    try {
        return run(settings);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tolvanev-engine: %s: %s\n", nameOf(settings.role), error.what());
        return BROKEN;
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    restoreSignals();
    const std::string first = argc > 1 ? argv[1] : "";
    if (argc == 2 && (first == "--help" || first == "-h")) {
        std::fputs(USAGE, stdout);
        return GOOD;
    }
    if (argc == 2 && first == "--version") {
        std::puts("tolvanev-engine " TOLVANEV_ENGINE_VERSION);
        return GOOD;
    }
    if (argc == 3 && first == "--check")
        return start(argv[2], true);
    if (argc == 2 && !first.starts_with("-"))
        return start(first, false);
    std::fputs(USAGE, stderr);
    return MISCONFIGURED;
}
