// SPDX-License-Identifier: MIT
// Cases: packing of a value and of 160 samples; one 324-byte frame through the frame builder in
// both directions, reused and new for each frame; the same through the reference reading; a look
// at the header alone. Input: one numbered frame, made once.
#include <benchmark/benchmark.h>

#include "BenchFrame.h"
#include "BinaryUtil.h"
#include "DataBuilder.h"
#include "ReferenceBuilder.h"

namespace {

const BenchFrame FRAME = numbered(12345);
const char* const BYTES = reinterpret_cast<const char*>(&FRAME);
constexpr unsigned int SIZE = sizeof(FRAME);

void packValue(benchmark::State& state) {
    for (int value = 0; auto _ : state)
        benchmark::DoNotOptimize(binary::pack<int>(++value));
}
BENCHMARK(packValue);

// The frame, in a way that does not tell the compiler what it holds or how long it is.
struct Input {
    Input() {
        benchmark::DoNotOptimize(bytes);
        benchmark::DoNotOptimize(size);
    }
    const char* bytes = BYTES;
    unsigned int size = SIZE;
};

void packSamples(benchmark::State& state) {
    const auto to = static_cast<int>(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(binary::pack<short>(
            FRAME.samples.data(), static_cast<int>(SAMPLES), binary::LITTLE, to));
}
BENCHMARK(packSamples)->Arg(binary::LITTLE)->Arg(binary::BIG);

void unpackSamples(benchmark::State& state) {
    const auto to = static_cast<int>(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(binary::unpack<short>(
            BYTES + framesync::HEADER_SIZE, framesync::MMSE_DATA_SIZE, binary::LITTLE, to));
}
BENCHMARK(unpackSamples)->Arg(binary::LITTLE)->Arg(binary::BIG);

template <typename Builder>
void reused(benchmark::State& state) {
    const auto to = static_cast<int>(state.range(0));
    const Input input;
    Builder builder;
    for (auto _ : state) {
        builder.build(input.bytes, input.size, binary::LITTLE, to);
        benchmark::DoNotOptimize(builder.getBuildData().data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(reused<FrameSyncBuilder<short>>)
    ->Name("buildFrame")
    ->Arg(binary::LITTLE)
    ->Arg(binary::BIG);
BENCHMARK(reused<ReferenceBuilder<short>>)
    ->Name("buildFrameReference")
    ->Arg(binary::LITTLE)
    ->Arg(binary::BIG);

void buildFrameNewBuilder(benchmark::State& state) {
    const auto to = static_cast<int>(state.range(0));
    const Input input;
    for (auto _ : state) {
        FrameSyncBuilder<short> builder;
        builder.build(input.bytes, input.size, binary::LITTLE, to);
        benchmark::DoNotOptimize(builder.getBuildData().data());
    }
}
BENCHMARK(buildFrameNewBuilder)->Arg(binary::LITTLE)->Arg(binary::BIG);

void headerOf(benchmark::State& state) {
    for (auto _ : state) {
        const Input input;
        benchmark::DoNotOptimize(FrameSyncBuilder<short>::headerOf(input.bytes, input.size));
    }
}
BENCHMARK(headerOf);

}  // namespace
