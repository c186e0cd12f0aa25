// SPDX-License-Identifier: MIT
// Cases: packing of 160 samples; one 324-byte frame through the frame builder in both directions,
// reused and new for each frame; the same through the reference reading; a look at the header
// alone. Input: one numbered frame, made once.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "BinaryUtil.h"
#include "DataBuilder.h"
#include "NumberedFrame.h"

namespace {

const NumberedFrame FRAME = numbered(12345);
const char* const BYTES = reinterpret_cast<const char*>(&FRAME);
constexpr unsigned int SIZE = sizeof(FRAME);

// The frame builder read literally, one value at a time: every value is unpacked from a small array
// of its own, and packed into another one that is appended. Kept as the measure of the real one.
template <typename T>
class ReferenceBuilder {
  public:
    void build(const char* data, unsigned int size, int from, int to) {
        header_ = unpackOne<int>(data, from, to);
        data_.clear();
        for (unsigned int at = framesync::HEADER_SIZE; at < size; at += sizeof(T))
            data_.push_back(unpackOne<T>(data + at, from, to));
        bytes_.clear();
        append(header_);
        for (const T& value : data_)
            append(value);
    }
    const ByteArray& getBuildData() const { return bytes_; }

  private:
    template <typename V>
    static V unpackOne(const char* data, int from, int to) {
        ByteArray piece(data, data + sizeof(V));
        if (from != to)
            std::reverse(piece.begin(), piece.end());
        V value;
        std::memcpy(&value, piece.data(), sizeof(value));
        return value;
    }

    template <typename V>
    void append(const V& value) {
        ByteArray piece;
        for (size_t i = 0; i < sizeof(V); ++i)
            piece.push_back(reinterpret_cast<const char*>(&value)[i]);
        bytes_.insert(bytes_.end(), piece.begin(), piece.end());
    }

    int header_ = 0;
    std::vector<T> data_;
    ByteArray bytes_;
};

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

void buildFrameNewBuilder(benchmark::State& state) {
    const auto to = static_cast<int>(state.range(0));
    const Input input;
    for (auto _ : state) {
        FrameSyncBuilder<short> builder;
        builder.build(input.bytes, input.size, binary::LITTLE, to);
        benchmark::DoNotOptimize(builder.getBuildData().data());
    }
}

void inBothOrders(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(binary::LITTLE)->Arg(binary::BIG);
}
BENCHMARK(packSamples)->Apply(inBothOrders);
BENCHMARK(reused<FrameSyncBuilder<short>>)->Name("buildFrame")->Apply(inBothOrders);
BENCHMARK(reused<ReferenceBuilder<short>>)->Name("buildFrameReference")->Apply(inBothOrders);
BENCHMARK(buildFrameNewBuilder)->Apply(inBothOrders);

void headerOf(benchmark::State& state) {
    for (auto _ : state) {
        const Input input;
        benchmark::DoNotOptimize(FrameSyncBuilder<short>::headerOf(input.bytes, input.size));
    }
}
BENCHMARK(headerOf);

}  // namespace
