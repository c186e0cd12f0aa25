// SPDX-License-Identifier: MIT
// The micro-benchmarks, micro_*.cpp, with the log as quiet as the bridge's is.
#include <benchmark/benchmark.h>

#include "log.h"

int main(int argc, char** argv) {
    FILELog::ReportingLevel() = logINFO;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
