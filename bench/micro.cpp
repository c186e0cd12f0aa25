// SPDX-License-Identifier: MIT
// The micro-benchmarks, micro_*.cpp, with the log as quiet as the bridge's is.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include "log.h"

int main(int argc, char** argv) {
    FILELog::ReportingLevel() = logINFO;
    // Large blocks go back to the system at once, as at the start of a program. The C library would
    // keep those of one size and not of the next, and two sizes could not be compared.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
