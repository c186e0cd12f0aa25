// SPDX-License-Identifier: MIT
// The voice server of a bridge and the reader of its standard output: floods or paces it, checks
// every frame that comes back, and reports one line of JSON. Whoever starts it has started the
// bridge, and hands over two descriptors:
//
//     flood VOICE RESULTS [options]
//
//     --frames N     how many to send (10000)
//     --warmup N     how many of them ahead of those that count (a tenth)
//     --window N     frames in flight at first (512)
//     --pace HZ      send at this pace instead, and measure the delay
//     --plain        no renewals are expected, and frames come back in the host's byte order
//     --negated      the engine negates each sample
//     --quick-ack    acknowledge returned frames at once instead of with the next frame sent
//     --drain        wait for the last frames, too
//
// Behind the warm-up it says "warm" and waits for a line on its standard input, so that the other
// can look at the bridge. Status 0 when every frame was right.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <string>

#include "Flood.h"

namespace {

[[noreturn]] void usage() {
    std::fputs("usage: flood VOICE RESULTS [options]\n", stderr);
    std::exit(2);
}

Flood::Plan planFrom(int argc, char** argv) {
    if (argc < 3)
        usage();
    Flood::Plan plan;
    plan.warmup = UINT32_MAX;
    const std::map<std::string, uint32_t*> numbers = {{"--frames", &plan.frames},
                                                      {"--warmup", &plan.warmup},
                                                      {"--window", &plan.window},
                                                      {"--pace", &plan.pace_hz}};
    const std::map<std::string, bool*> switches = {{"--plain", &plan.plain},
                                                   {"--negated", &plan.negated},
                                                   {"--quick-ack", &plan.quick_ack},
                                                   {"--drain", &plan.drain}};
    plan.voice = std::atoi(argv[1]);
    plan.results = std::atoi(argv[2]);
    for (int i = 3; i < argc; ++i) {
        if (switches.contains(argv[i]))
            *switches.at(argv[i]) = true;
        else if (numbers.contains(argv[i]) && i + 1 < argc)
            *numbers.at(argv[i]) = static_cast<uint32_t>(std::stoul(argv[i + 1])), ++i;
        else
            usage();
    }
    if (plan.warmup == UINT32_MAX)
        plan.warmup = plan.frames / 10;
    return plan;
}

void sayWarmAndWait() {
    std::puts("warm");
    std::fflush(stdout);
    while (std::getchar() > '\n')
        continue;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Flood flood(planFrom(argc, argv));
        flood.run(sayWarmAndWait);
        std::puts(flood.report().c_str());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "flood: %s\n", error.what());
        return 1;
    }
}
