// SPDX-License-Identifier: MIT
// Engines that send nonsense, fail or are dead.
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

#include "AppController.h"
#include "app_controller_fixture.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "wait_until.h"

namespace {

using faults::Call;

TEST_F(AppControllerTest, AnInvalidVADHeaderIsAnUnknownException) {
    launchEmitting("0", "5");
    feed("0");
    EXPECT_EQ(errorOfPass(), "[AppcontrollerError] Unknown Exception.");
}

TEST_F(AppControllerTest, TheDroppedTextNamesTheVADHeader) {
    launchEmitting("0", "5");
    feed("0");
    errorOfPass();
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.createResultData(); }),
              "[AppcontrollerError] Invalid header type : 5");
}

TEST_F(AppControllerTest, ANegativeVADHeaderIsNamedWithItsSign) {
    launchEmitting("0", "-1");
    feed("0");
    errorOfPass();
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.createResultData(); }),
              "[AppcontrollerError] Invalid header type : -1");
}

TEST_F(AppControllerTest, AnInvalidVADFrameStaysInFront) {
    launchEmitting("0", "5");
    feed("0");
    errorOfPass();
    EXPECT_EQ(errorOfPass(), "[AppcontrollerError] Unknown Exception.");
}

TEST_F(AppControllerTest, AFailedWaitCarriesBothTags) {
    launch("", "");
    faults::failNext(Call::SELECT, EINTR);
    EXPECT_EQ(errorOfPass(),
              withSystemText(
                  "[AppcontrollerError] [AppConnectorError] Pipe select failed. error : ", EINTR));
}

TEST_F(AppControllerTest, AFailedReadCarriesBothTags) {
    launchEmitting("0", "0");
    faults::failNext(Call::READ, EIO);
    EXPECT_EQ(
        errorOfPass(),
        withSystemText("[AppcontrollerError] [AppConnectorError] Pipe read failed. error : ", EIO));
}

TEST_F(AppControllerTest, AFailedWriteCarriesBothTagsAndKeepsTheFrame) {
    launch("", "");
    feed("0");
    faults::failNext(Call::WRITE, EIO);
    EXPECT_EQ(errorOfPass(),
              withSystemText("[AppcontrollerError] [AppConnectorError] Pipe write failed. error : ",
                             EIO));
    pass();
    EXPECT_TRUE(engines_.mmse.hasLogged("frame 0 101"));
}

TEST_F(AppControllerTest, AFailedWriteToTheVADEngineKeepsTheFrame) {
    launchEmitting("0", "0");
    faults::failNext(Call::WRITE, EIO);
    EXPECT_NE(errorOfPass(), "");
    pass();
    EXPECT_TRUE(engines_.vad.hasLogged("frame 0 1"));
}

TEST_F(AppControllerTest, AnyOtherErrorLosesItsText) {
    launch("", "");
    faults::afterNext(Call::SELECT, [] { throw std::runtime_error("[AppcontrollerError] text"); });
    EXPECT_EQ(errorOfPass(), "[AppcontrollerError] Unknown Exception.");
}

TEST_F(AppControllerTest, AnAppControllerErrorInsideAPassLosesItsText) {
    launch("", "");
    faults::afterNext(Call::SELECT, [] { throw AppControllerError("text"); });
    EXPECT_EQ(errorOfPass(), "[AppcontrollerError] Unknown Exception.");
}

// Dead engines.

TEST_F(AppControllerTest, ADeadMMSEEngineYieldsZeroFilledDataFrames) {
    launch("silent\nexit_after 1\n", "");
    feed("0");
    pass();
    ASSERT_TRUE(waitUntil([] { return endedChild().si_pid != 0; }));
    std::string result;
    EXPECT_TRUE(waitUntil([&] {
        pass();
        return !(result = mmse()).empty();
    }));
    EXPECT_EQ(result, "0:0");
    EXPECT_EQ(server(), "0:101");
}

class DeadVADEngine : public AppControllerTest {
  protected:
    void launchDead(const std::string& mmse_script, const std::string& vad_script) {
        launch(mmse_script, vad_script + "exit_after 0\n");
        ASSERT_TRUE(waitUntil([] { return endedChild().si_pid != 0; }));
        faults::clear();
    }
};

TEST_F(DeadVADEngine, DoesNotTrapTheLoop) {
    launchDead("silent\n", "");
    pass();
    EXPECT_GE(faults::callsOf(Call::READ), 630);  // what a pipe can hold is read in one pass
    EXPECT_LT(faults::callsOf(Call::READ), 1000);
}

// The buffer is zeroed once a pass, not once a read: a read that brings nothing repeats the frame
// before it.
TEST_F(DeadVADEngine, RepeatsItsLastFrameWithinThePassAndThenYieldsSilence) {
    launchDead("emit 0\nsilent\n", "emit 1\n");
    ASSERT_TRUE(engines_.mmse.hasLogged("emitted"));
    feed("0");
    faults::answerNext(Call::WRITE, 324, {.skip = 1});  // the VAD engine cannot take a frame
    pass();
    EXPECT_EQ(server().substr(0, 12), "1:0 1:0 1:0 ");
    pass();
    EXPECT_EQ(server(), "0:101");
}

TEST_F(DeadVADEngine, FillsABoundedQueueWithOneWarning) {
    launchDead("silent\n", "");
    pass(100);
    EXPECT_EQ(log_.lines(), std::vector<std::string>{
                                "WARNING: vad engine runs ahead. its newest frames are dropped."});
}

}  // namespace
