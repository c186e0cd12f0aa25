// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_APP_CONTROLLER_FIXTURE_H
#define TOLVANEV_TESTS_APP_CONTROLLER_FIXTURE_H

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "AppController.h"
#include "audio_frames.h"
#include "error_text.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "scripted_engines.h"

// The engine controller with its steps open to the tests.
class OpenAppController : public AppController {
  public:
    using AppController::createResultData;
    using AppController::getFrameSyncHeader;
    using AppController::isOpen;
    using AppController::readMMSEData;
    using AppController::readVADData;
    using AppController::writeMMSEData;
    using AppController::writeVADData;
};

// Streams are lists of frame types: "9 0 1". Frames that an engine emits are numbered from 1,
// input frames from 101.
class AppControllerTest : public testing::Test {
  protected:
    AppControllerTest() {
        controller_.initialize(SCRIPTED_ENGINE, engines_.mmse.settings(), engines_.vad.settings());
    }

    void launch(const std::string& mmse_script = "", const std::string& vad_script = "") {
        engines_.mmse.follow(mmse_script);
        engines_.vad.follow(vad_script);
        controller_.launch();
    }

    // Engines that say what they are told and do not answer; returns when all of it is in the
    // pipes, so that a pass finds the same whatever the machine is busy with.
    void launchEmitting(const std::string& mmse_types, const std::string& vad_types) {
        const auto script = [](const std::string& types) { return "emit " + types + "\nsilent\n"; };
        launch(script(mmse_types), script(vad_types));
        EXPECT_TRUE(mmse_types.empty() || engines_.mmse.hasLogged("emitted"));
        EXPECT_TRUE(vad_types.empty() || engines_.vad.hasLogged("emitted"));
    }

    void feed(const std::string& types) {
        std::istringstream words(types);
        for (int type = 0; words >> type;)
            controller_.addReceiveData(audioFrame(type, 101 + fed_++));
    }

    void pass(int times = 1) {
        for (int i = 0; i < times; ++i)
            EXPECT_TRUE(controller_.process());
    }

    // Lines up three streams as far as that goes.
    void align(const std::string& mmse, const std::string& vad, const std::string& input) {
        launchEmitting(mmse, vad);
        feed(input);
        pass(20);
    }

    std::string mmse() {
        return describedAll([this](ReceiveData& frame) { return controller_.getMMSEData(frame); });
    }
    std::string server() {
        return describedAll(
            [this](ReceiveData& frame) { return controller_.getServerData(frame); });
    }
    std::string errorOfPass() {
        return errorOf<AppControllerError>([this] { controller_.process(); });
    }

    ScriptedEngines engines_;
    LogCapture log_;
    OpenAppController controller_;
    int fed_ = 0;
};

#endif
