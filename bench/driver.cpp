// SPDX-License-Identifier: MIT
// Plays all peers of one bridge, or of a program that takes its place, checks every frame that
// comes back, and reports one line of JSON about that program.
//
//     driver --engine PATH [options] -- PROGRAM [ARGUMENT ...]
//
//     --frames N     how many to send (10000)
//     --window N     flood: frames in flight (384)
//     --paced HZ     send at this pace instead, and measure the delay
//     --warmup N     frames before the figures begin (a tenth)
//     --utterance    the VAD engine says START first: no noise is gathered, no renewal comes
//     --plain        no renewals are expected, and frames come back in the host's byte order
//     --no-sound     the program does not connect to a sound client
//     --quick-ack    acknowledge returned frames at once instead of with the next frame sent
//     --verbose      show the program's standard error
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "Trial.h"

namespace {

[[noreturn]] void usage() {
    std::fputs("usage: driver --engine PATH [options] -- PROGRAM [ARGUMENT ...]\n", stderr);
    std::exit(2);
}

Trial::Plan planFrom(int argc, char** argv) {
    Trial::Plan plan;
    plan.program.mmse_setting = "null.mmse";
    plan.program.vad_setting = "null.vad";
    plan.warmup = UINT32_MAX;
    int i = 1;
    const auto value = [&] { return i + 1 < argc ? argv[++i] : (usage(), argv[i]); };
    const auto number = [&] { return static_cast<uint32_t>(std::stoul(value())); };
    for (; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        const std::string word = argv[i];
        if (word == "--engine")
            plan.program.engine = value();
        else if (word == "--frames")
            plan.frames = number();
        else if (word == "--window")
            plan.window = number();
        else if (word == "--paced")
            plan.pace_hz = number();
        else if (word == "--warmup")
            plan.warmup = number();
        else if (word == "--utterance")
            plan.program.vad_setting = "null.vad.utterance";
        else if (word == "--plain")
            plan.plain = true;
        else if (word == "--quick-ack")
            plan.quick_ack = true;
        else if (word == "--no-sound")
            plan.program.sound_client = false;
        else if (word == "--verbose")
            plan.program.quiet = false;
        else
            usage();
    }
    plan.program.command.assign(argv + std::min(i + 1, argc), argv + argc);
    if (plan.program.command.empty() || plan.program.engine.empty() || plan.frames == 0)
        usage();
    if (plan.warmup == UINT32_MAX)
        plan.warmup = plan.frames / 10;
    return plan;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Trial trial(planFrom(argc, argv));
        trial.run();
        std::puts(trial.report().c_str());
        return trial.good() ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "driver: %s\n", error.what());
        return 1;
    }
}
