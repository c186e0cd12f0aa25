// SPDX-License-Identifier: MIT
#include "Application.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <type_traits>

#include "AppController.h"
#include "application_fixture.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"

namespace {

static_assert(std::is_same_v<ApplicationPtr, std::shared_ptr<Application>>);
static_assert(std::is_same_v<VoiceServerPtr, std::shared_ptr<VoiceServer>>);
static_assert(std::is_same_v<SoundClientPtr, std::shared_ptr<SoundClient>>);
static_assert(std::is_same_v<ROSConnectorPtr, std::shared_ptr<ROSConnector>>);

using faults::Call;

// finalize and destructor at every stage.

static_assert(std::has_virtual_destructor_v<Application>);

TEST_F(ApplicationTest, FinalizeBeforeInitializeReturnsTrue) {
    EXPECT_TRUE(app_->finalize());
    EXPECT_TRUE(app_->finalize());
}

TEST_F(ApplicationTest, AnUninitializedApplicationIsDestroyed) {
    app_.reset();
    EXPECT_EQ(errors_.text() + log_.text(), "");
}

TEST_F(ApplicationTest, InitializeStartsAndConnectsNothing) {
    const auto before = openDescriptors();
    initialize();
    EXPECT_FALSE(hasChildren());
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ApplicationTest, FinalizeAfterInitializeReturnsTrueEveryTime) {
    initialize();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(app_->finalize());
}

TEST_F(ApplicationTest, FinalizeAfterARunStopsEnginesAndVoiceServerAndLeavesTheSoundClient) {
    initialize();
    whenConnected([] {});
    runUntil([] { return true; });
    EXPECT_TRUE(hasChildren());
    EXPECT_TRUE(app_->finalize());
    EXPECT_FALSE(hasChildren());
    EXPECT_TRUE(voice_.seesEnd());
    EXPECT_FALSE(sound_.hasEnded());
    EXPECT_TRUE(app_->finalize());
}

TEST_F(ApplicationTest, TheDestructorStopsEnginesAndClosesBothPeers) {
    initialize();
    whenConnected([] {});
    runUntil([] { return true; });
    app_.reset();
    EXPECT_FALSE(hasChildren());
    EXPECT_TRUE(voice_.seesEnd());
    EXPECT_TRUE(sound_.seesEnd());
}

// Launching.

TEST_F(ApplicationTest, AFailedVADLaunchIsFatalAndThrownOn) {
    initialize();
    faults::failNext(Call::PIPE, EMFILE);
    const std::string error = errorOf<AppControllerError>([this] { app_->run(); });
    EXPECT_EQ(error,
              withSystemText("[AppcontrollerError] VAD connector launch failed. "
                             "[AppConnectorError] Parent to child pipe create failed. error : ",
                             EMFILE));
    EXPECT_EQ(errors_.text(), "[FATAL] " + error + "\n");
}

TEST_F(ApplicationTest, AFailedMMSELaunchStopsTheVADEngine) {
    initialize();
    faults::failNext(Call::PIPE, EMFILE, {.skip = 2});
    EXPECT_THROW(app_->run(), AppControllerError);
    EXPECT_FALSE(hasChildren());
    EXPECT_EQ(errors_.text().substr(0, 58),
              "[FATAL] [AppcontrollerError] MMSE connector launch failed.");
}

// Connecting.

TEST_F(ApplicationTest, ConnectingIsAnnounced) {
    initialize();
    whenConnected([] {});
    runUntil([] { return true; });
    EXPECT_EQ(errors_.text(), CONNECTED + "[ROSConnectorError] ROS connector read failed.\n");
    EXPECT_EQ(faults::callsOf(Call::SLEEP), 0);
}

TEST_F(ApplicationTest, AMissingSoundClientIsTriedAgainAfterFiveSecondsWithoutLimit) {
    initialize();
    for (int i = 0; i < 3; ++i) {
        faults::failNext(Call::SOCKET, EMFILE);
        faults::answerNext(Call::SLEEP, 0);
    }
    whenConnected([] {});
    runUntil([] { return true; });
    EXPECT_EQ(
        errors_.text().substr(0, 3 * 25 + CONNECTED.size()),
        "Connecting to Server ... Connecting to Server ... Connecting to Server ... " + CONNECTED);
    EXPECT_EQ(faults::callsOf(Call::SLEEP), 3);
    EXPECT_EQ(faults::secondsAsked(), 5u);
}

TEST_F(ApplicationTest, AMissingVoiceServerDisconnectsTheSoundClientBeforeTheNextAttempt) {
    initialize();
    faults::answerNext(Call::SELECT, 0);  // nobody comes within the five seconds
    bool ended = false;
    faults::answerNext(Call::SLEEP, 0, {}, [&] { ended = sound_listener_.accept().seesEnd(); });
    whenConnected([] {}, 1);
    runUntil([] { return true; });
    EXPECT_TRUE(ended);
    EXPECT_EQ(faults::callsOf(Call::SLEEP), 1);
    EXPECT_EQ(errors_.text().substr(0, 25 + CONNECTED.size()),
              "Connecting to Server ... " + CONNECTED);
}

}  // namespace
