// SPDX-License-Identifier: MIT
#include "AppController.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "AppConnector.h"
#include "app_controller_fixture.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"

namespace {

using faults::Call;

TEST_F(AppControllerTest, ErrorTextCarriesTheTagWithItsLowerCaseC) {
    EXPECT_STREQ(AppControllerError("text").what(), "[AppcontrollerError] text");
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, AppControllerError>));
}

TEST_F(AppControllerTest, InitializeReturnsTrueAndStartsNothing) {
    EXPECT_TRUE(controller_.initialize("a", "b", "c"));
    EXPECT_FALSE(controller_.isOpen());
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppControllerTest, ProcessBeforeLaunchReturnsFalseAndTouchesNoQueue) {
    feed("0");
    EXPECT_FALSE(controller_.process());
    launch("", "");
    pass();
    EXPECT_TRUE(engines_.mmse.hasLogged("frame 0 101"));
}

TEST_F(AppControllerTest, FinalizeBeforeLaunchReturnsTrue) {
    EXPECT_TRUE(controller_.finalize());
    EXPECT_TRUE(controller_.finalize());
}

TEST_F(AppControllerTest, EmptyQueuesYieldFalseAndLeaveTheData) {
    ReceiveData data = bytesOf("kept");
    EXPECT_FALSE(controller_.getMMSEData(data));
    EXPECT_FALSE(controller_.getServerData(data));
    EXPECT_EQ(data, bytesOf("kept"));
}

TEST_F(AppControllerTest, LaunchStartsBothEnginesWithTheirSettings) {
    EXPECT_TRUE(controller_.launch());
    EXPECT_TRUE(controller_.isOpen());
    EXPECT_TRUE(engines_.vad.hasLogged("start"));
    EXPECT_TRUE(engines_.mmse.hasLogged("start"));
}

TEST_F(AppControllerTest, AFailingVADLaunchNamesTheVADConnector) {
    faults::failNext(Call::PIPE, EMFILE);
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.launch(); }),
              withSystemText("[AppcontrollerError] VAD connector launch failed. "
                             "[AppConnectorError] Parent to child pipe create failed. error : ",
                             EMFILE));
    EXPECT_FALSE(controller_.isOpen());
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppControllerTest, TheVADEngineIsStartedBeforeTheMMSEEngine) {
    faults::failNext(Call::PIPE, EMFILE, {.skip = 2});
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.launch(); }),
              withSystemText("[AppcontrollerError] MMSE connector launch failed. "
                             "[AppConnectorError] Parent to child pipe create failed. error : ",
                             EMFILE));
    EXPECT_TRUE(engines_.vad.hasLogged("start"));
}

TEST_F(AppControllerTest, FinalizeAfterAFailedLaunchStopsTheEngineThatWasStarted) {
    faults::failNext(Call::PIPE, EMFILE, {.skip = 2});
    EXPECT_THROW(controller_.launch(), AppControllerError);
    EXPECT_FALSE(controller_.process());
    EXPECT_TRUE(controller_.finalize());
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppControllerTest, FinalizeStopsBothEnginesAndEmptiesTheQueues) {
    align("0", "0", "0 0");
    EXPECT_TRUE(controller_.finalize());
    EXPECT_FALSE(hasChildren());
    EXPECT_FALSE(controller_.isOpen());
    EXPECT_EQ(mmse() + server(), "");
}

TEST_F(AppControllerTest, AfterFinalizeProcessReturnsFalse) {
    launch();
    controller_.finalize();
    EXPECT_FALSE(controller_.process());
    EXPECT_TRUE(controller_.finalize());
}

TEST_F(AppControllerTest, AConnectorErrorLeavesFinalizeUnchanged) {
    launch();
    faults::failNext(Call::KILL, EPERM);
    EXPECT_EQ(errorOf<AppConnectorError>([this] { controller_.finalize(); }),
              withSystemText("[AppConnectorError] Kill child process failed. error : ", EPERM));
    EXPECT_TRUE(controller_.isOpen());
}

TEST_F(AppControllerTest, TheVADEngineIsStoppedFirst) {
    launch();
    ASSERT_TRUE(engines_.vad.hasLogged("start") && engines_.mmse.hasLogged("start"));
    faults::failNext(Call::KILL, EPERM, {.skip = 1});
    EXPECT_THROW(controller_.finalize(), AppConnectorError);
    EXPECT_EQ(kill(engines_.vad.pids().at(0), 0), -1);
    EXPECT_EQ(kill(engines_.mmse.pids().at(0), 0), 0);
}

TEST_F(AppControllerTest, TheDestructorStopsBothEngines) {
    auto other = std::make_unique<OpenAppController>();
    other->initialize(SCRIPTED_ENGINE, engines_.mmse.settings(), engines_.vad.settings());
    other->launch();
    other.reset();
    EXPECT_FALSE(hasChildren());
}

TEST_F(AppControllerTest, AFailingDestructorLogsAndTheConnectorsStopTheirEngines) {
    auto other = std::make_unique<OpenAppController>();
    other->initialize(SCRIPTED_ENGINE, engines_.mmse.settings(), engines_.vad.settings());
    other->launch();
    faults::failNext(Call::KILL, EPERM);
    other.reset();
    EXPECT_EQ(log_.lines(),
              std::vector{withSystemText(
                  "ERROR: [AppConnectorError] Kill child process failed. error : ", EPERM)});
    EXPECT_FALSE(hasChildren());
}

}  // namespace
