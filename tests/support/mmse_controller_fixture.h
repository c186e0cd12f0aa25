// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_MMSE_CONTROLLER_FIXTURE_H
#define TOLVANEV_TESTS_MMSE_CONTROLLER_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "MMSEAppController.h"
#include "audio_frames.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "scripted_engines.h"
#include "wait_until.h"

// The stream controller with its steps open to the tests.
class OpenMMSEAppController : public MMSEAppController {
  public:
    using MMSEAppController::addNoiseData;
    using MMSEAppController::addSendData;
    using MMSEAppController::addVADData;
    using MMSEAppController::checkBufferFrame;
    using MMSEAppController::createAverageNoise;
    using MMSEAppController::createNullFrame;
    using MMSEAppController::renewNoiseModel;
};

// A stream controller between scripted engines, of which it starts none by itself.
class MMSEAppControllerTest : public testing::Test {
  protected:
    MMSEAppControllerTest() { initialize(); }

    bool initialize() {
        return controller_.initialize(SCRIPTED_ENGINE, engines_.mmse.settings(),
                                      engines_.vad.settings());
    }

    // Examines frames of one type, as getServerData does.
    void examine(int type, int times = 1, int sample = 0) {
        for (int i = 0; i < times; ++i)
            controller_.addVADData(audioFrame(type, sample));
    }

    // Puts frames with these numbers into the delay line.
    void feed(int first, int last, int type = FRAME_DATA) {
        for (int number = first; number <= last; ++number)
            controller_.addReceiveData(audioFrame(type, number));
    }

    // Passes until the MMSE engine has logged this frame: "frame 0 1".
    void passUntilEngineHas(const std::string& frame, long times = 1) {
        EXPECT_TRUE(waitUntil([&] {
            EXPECT_TRUE(controller_.process());
            const auto events = engines_.mmse.events();
            return std::count(events.begin(), events.end(), frame) >= times;
        }));
    }

    // Noise blocks of ten frames, every sample of a block the same.
    void addBlocks(const std::vector<int>& samples) {
        for (const int sample : samples) {
            for (int i = 0; i < 10; ++i)
                controller_.addNoiseData(audioFrame(FRAME_DATA, sample, sample));
        }
    }

    // The average over blocks with these samples; it is the same at every position.
    int averageOf(const std::vector<int>& samples) {
        addBlocks(samples);
        return uniformSample(controller_.createAverageNoise());
    }

    static int uniformSample(const ReceiveQueue& frames) {
        std::set<int> found;
        for (const ReceiveData& frame : frames) {
            EXPECT_EQ(frame.size(), 324u);
            EXPECT_EQ(typeOf(frame), FRAME_DATA);
            for (size_t i = 0; i < SAMPLES; ++i)
                found.insert(sampleOf(frame, i));
        }
        EXPECT_EQ(frames.size(), 10u);
        EXPECT_EQ(found.size(), 1u);
        return found.empty() ? 0 : *found.begin();
    }

    // How often the noise model has been renewed: the message of each renewal.
    int renewals() const {
        const auto lines = log_.lines();
        return static_cast<int>(std::count(lines.begin(), lines.end(), "INFO: renew noize model."));
    }

    ScriptedEngines engines_;
    LogCapture log_;
    OpenMMSEAppController controller_;
};

#endif
