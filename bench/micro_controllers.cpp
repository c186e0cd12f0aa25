// SPDX-License-Identifier: MIT
// Cases: the noise average over four blocks, and all of a renewal's own work, that is the average,
// its frames and the EOF and TOF ahead of them; one createResultData step, each on three queued
// frames. The queues are filled through two null engines, outside the time that counts.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>

#include "AppController.h"
#include "MMSEAppController.h"
#include "NumberedFrame.h"

namespace {

ReceiveData bytesOf(const NumberedFrame& frame) {
    const char* const bytes = reinterpret_cast<const char*>(&frame);
    return {bytes, bytes + sizeof(frame)};
}

class Model : public MMSEAppController {
  public:
    using MMSEAppController::createAverageNoise;
    using MMSEAppController::createNullFrame;

    Model() {
        initialize("", "", "");
        for (uint32_t i = 1; i <= 4 * app_controller::NOISE_FRAME_SIZE; ++i)
            addNoiseData(bytesOf(numbered(i)));
    }
};

void noiseAverage(benchmark::State& state) {
    Model model;
    for (auto _ : state)
        benchmark::DoNotOptimize(model.createAverageNoise());
}
BENCHMARK(noiseAverage);

void renewalFrames(benchmark::State& state) {
    Model model;
    for (auto _ : state) {
        ReceiveQueue line;
        line.push_back(model.createNullFrame(FRAME_EOF));
        line.push_back(model.createNullFrame(FRAME_TOF));
        for (ReceiveData& frame : model.createAverageNoise())
            line.push_back(std::move(frame));
        benchmark::DoNotOptimize(line);
    }
}
BENCHMARK(renewalFrames);

class Steps : public AppController {
  public:
    using AppController::createResultData;

    Steps() {
        initialize(NULL_ENGINE, "null.mmse", "null.vad");
        launch();
    }

    // Queues a frame in each of the three streams, as far as the engines have answered.
    void fill(uint32_t frames) {
        for (uint32_t i = 1; i <= frames; ++i) {
            addReceiveData(bytesOf(numbered(i)));
            writeMMSEData();
        }
        for (uint32_t i = 0; i < 2 * frames; ++i) {
            readMMSEData();
            writeVADData();
            if (i % 10 == 0)
                usleep(200);  // the engines' turn
        }
        usleep(2000);
        readVADData();
    }

    uint32_t drain() {
        uint32_t frames = 0;
        for (ReceiveData frame; getServerData(frame); ++frames)
            getMMSEData(frame);
        return frames;
    }
};

// The time of a step is that of a run over many, divided by the frames that came out.
void createResultData(benchmark::State& state) {
    constexpr uint32_t FRAMES = 100;  // fit into a pipe
    using Clock = std::chrono::steady_clock;
    Steps steps;
    uint64_t frames = 0;
    double seconds = 0;
    for (auto _ : state) {
        steps.fill(FRAMES);
        const auto start = Clock::now();
        steps.createResultData();
        const std::chrono::duration<double> time = Clock::now() - start;
        state.SetIterationTime(time.count());
        seconds += time.count();
        frames += steps.drain();
    }
    state.counters["ns_per_frame"] = seconds * 1e9 / static_cast<double>(frames);
    if (frames < static_cast<uint64_t>(state.iterations()) * FRAMES / 2)
        state.SkipWithError("the engines did not answer");
}
BENCHMARK(createResultData)->UseManualTime()->Iterations(30);

}  // namespace
