// SPDX-License-Identifier: MIT
// Cases: a DATA block of 4 and 8 MB, and junk without keywords of the same sizes, plain and made of
// keywords' beginnings; all in reads of 1,024 bytes, as the link reads them. Input: made once.
// `kept` is what the parser still holds on the heap when the last byte was looked at.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <string>

#include "SoundClientProcessor.h"

namespace {

constexpr int64_t MEGABYTE = 1 << 20;
constexpr size_t READ = 1024;

// Memory that was freed stays with the process. Otherwise the kernel's pages, zeroed anew for each
// run, cost twice as much as the parser, and more on a machine whose memory others use too.
void keepFreedMemory() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
}

void feed(SoundClientProcessor& parser, const std::string& stream) {
    for (size_t at = 0; at < stream.size(); at += READ) {
        const size_t size = std::min(READ, stream.size() - at);
        parser.addReceiveData(ReceiveData(stream.data() + at, stream.data() + at + size));
        parser.process();
    }
}

void run(benchmark::State& state, const std::string& stream) {
    keepFreedMemory();
    size_t kept = 0;
    for (auto _ : state) {
        const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
        SoundClientProcessor parser;
        parser.initialize();
        feed(parser, stream);
        kept = mallinfo2().uordblks + mallinfo2().hblkhd - before;
        benchmark::DoNotOptimize(parser.getEpdState());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(stream.size()));
    state.counters["kept"] = static_cast<double>(kept);
}

void parseData(benchmark::State& state) {
    const auto size = static_cast<size_t>(state.range(0) * MEGABYTE);
    // One byte behind the payload: a block at the very front waits for it.
    run(state, "DATA " + std::to_string(size) + "\n\n" + std::string(size, '\x11') + " ");
}
BENCHMARK(parseData)->Arg(4)->Arg(8)->Unit(benchmark::kMillisecond);

void parseJunk(benchmark::State& state) {
    run(state, std::string(static_cast<size_t>(state.range(0) * MEGABYTE), '\x11'));
}
BENCHMARK(parseJunk)->Arg(4)->Arg(8)->Unit(benchmark::kMillisecond);

void parseNearKeywords(benchmark::State& state) {
    std::string stream;
    while (stream.size() < static_cast<size_t>(state.range(0) * MEGABYTE))
        stream += "DATEPD_OCANCE";
    run(state, stream);
}
BENCHMARK(parseNearKeywords)->Arg(4)->Arg(8)->Unit(benchmark::kMillisecond);

}  // namespace
