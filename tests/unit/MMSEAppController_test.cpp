// SPDX-License-Identifier: MIT
#include "MMSEAppController.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "AppConnector.h"
#include "audio_frames.h"
#include "error_text.h"
#include "faults.h"
#include "mmse_controller_fixture.h"
#include "wait_until.h"

namespace {

using faults::Call;

static_assert(std::has_virtual_destructor_v<MMSEAppController>);

TEST_F(MMSEAppControllerTest, WrappersReturnTrue) {
    EXPECT_TRUE(initialize());
    EXPECT_TRUE(controller_.launch());
    EXPECT_TRUE(controller_.process());
    EXPECT_TRUE(controller_.finalize());
}

// The engine controller's own answer is false here.
TEST_F(MMSEAppControllerTest, ProcessReturnsTrueBeforeLaunch) {
    EXPECT_TRUE(controller_.process());
}

TEST_F(MMSEAppControllerTest, ErrorsOfTheEngineControllerPassThrough) {
    faults::failNext(Call::FORK, EAGAIN);
    const auto before = openDescriptors();
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.launch(); }),
              "[AppcontrollerError] VAD connector launch failed. [AppConnectorError] fork failed.");
    closeOpenedSince(before);
}

// A clean-up that fails in a destructor is logged.
TEST_F(MMSEAppControllerTest, TheDestructorEndsNothingAndDoesNotFailWithoutInitialize) {
    { const MMSEAppController never_initialized; }
    EXPECT_EQ(faults::callsOf(Call::KILL), 0);
    EXPECT_EQ(faults::callsOf(Call::WAITPID), 0);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(MMSEAppControllerTest, GettersReturnFalseWhenThereIsNothing) {
    ReceiveData data = bytesOf("kept");
    EXPECT_FALSE(controller_.getMMSEData(data));
    EXPECT_FALSE(controller_.getServerData(data));
    EXPECT_EQ(data, bytesOf("kept"));
}

// The delay line.

TEST_F(MMSEAppControllerTest, NineFramesForwardNothing) {
    controller_.launch();
    feed(1, 9);
    faults::clear();
    for (int i = 0; i < 20; ++i)
        controller_.process();
    EXPECT_EQ(faults::callsOf(Call::WRITE), 0);
}

TEST_F(MMSEAppControllerTest, TheTenthFrameForwardsTheFirstAndEachLaterOneTheNext) {
    controller_.launch();
    feed(1, 10);
    passUntilEngineHas("frame 0 1");
    feed(11, 11);
    passUntilEngineHas("frame 0 2");
    EXPECT_EQ(engines_.mmse.frames(), "0:1 0:2");
}

TEST_F(MMSEAppControllerTest, FramesOfEveryTypeAreDelayedAlike) {
    controller_.launch();
    feed(1, 1, FRAME_TOF);
    feed(2, 11);
    passUntilEngineHas("frame 0 2");
    EXPECT_EQ(engines_.mmse.frames(), "9:1 0:2");
}

TEST_F(MMSEAppControllerTest, DelayedFramesSurviveClearData) {
    controller_.launch();
    feed(1, 9);
    controller_.clearData();
    feed(10, 11);
    passUntilEngineHas("frame 0 2");
    EXPECT_EQ(engines_.mmse.frames(), "0:1 0:2");
}

TEST_F(MMSEAppControllerTest, DelayedFramesSurviveInitialize) {
    feed(1, 9);
    initialize();
    controller_.launch();
    feed(10, 10);
    passUntilEngineHas("frame 0 1");
    EXPECT_EQ(engines_.mmse.frames(), "0:1");
}

TEST_F(MMSEAppControllerTest, ClearDataDropsForwardedFrames) {
    feed(1, 10);
    controller_.clearData();
    controller_.launch();
    feed(11, 11);
    passUntilEngineHas("frame 0 2");
    EXPECT_EQ(engines_.mmse.frames(), "0:2");
}

// The watch.

TEST_F(MMSEAppControllerTest, OperationFramesAreLoggedAtDebugLevel) {
    examine(FRAME_START);
    examine(FRAME_END);
    examine(FRAME_TOF);
    examine(FRAME_EOF);
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{
                                "DEBUG: operation header :1", "DEBUG: operation header :2",
                                "DEBUG: operation header :9", "DEBUG: operation header :10"}));
}

TEST_F(MMSEAppControllerTest, AudioFramesAreNotLogged) {
    examine(FRAME_DATA, 20);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(MMSEAppControllerTest, AnUnknownTypeThrowsItsNumber) {
    EXPECT_EQ(errorOf<AppControllerError>([this] { examine(5); }),
              "[AppcontrollerError] Invalid header type : 5");
}

TEST_F(MMSEAppControllerTest, TypesBesideTheKnownOnesThrow) {
    for (const int type : {3, 8, 11})
        EXPECT_EQ(errorOf<AppControllerError>([&] { examine(type); }),
                  "[AppcontrollerError] Invalid header type : " + std::to_string(type));
}

TEST_F(MMSEAppControllerTest, ANegativeTypeIsShownUnsigned) {
    EXPECT_EQ(errorOf<AppControllerError>([this] { examine(-1); }),
              "[AppcontrollerError] Invalid header type : 4294967295");
}

TEST_F(MMSEAppControllerTest, FramesThatCannotBeParsedThrowWhatTheParserThrows) {
    EXPECT_THROW(controller_.addVADData(ReceiveData(3)), std::bad_alloc);
    EXPECT_THROW(controller_.addVADData(ReceiveData(323)), std::invalid_argument);
}

TEST_F(MMSEAppControllerTest, NoiseIsCollectedFromTheBeginning) {
    examine(FRAME_DATA, 10, 7);
    EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(9)), 7);
}

TEST_F(MMSEAppControllerTest, NoNoiseIsCollectedInsideAnUtterance) {
    examine(FRAME_START);
    examine(FRAME_DATA, 30, 7);
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
}

TEST_F(MMSEAppControllerTest, EveryOperationFrameButAStartResumesTheCollection) {
    for (const int type : {FRAME_END, FRAME_TOF, FRAME_EOF}) {
        controller_.clearData();
        examine(FRAME_START);
        examine(FRAME_DATA, 10, 100);
        examine(type);
        examine(FRAME_DATA, 10, type);
        EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(0)), type);
    }
}

TEST_F(MMSEAppControllerTest, OperationFramesAreNeverCollected) {
    for (int i = 0; i < 10; ++i)
        for (const int type : {FRAME_START, FRAME_END, FRAME_TOF, FRAME_EOF})
            examine(type, 1, 7);
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
}

TEST_F(MMSEAppControllerTest, ABlockIsFilledAcrossAnUtterance) {
    examine(FRAME_DATA, 5, 1);
    examine(FRAME_START);
    examine(FRAME_DATA, 5, 2);
    examine(FRAME_END);
    examine(FRAME_DATA, 5, 3);
    const ReceiveQueue noise = controller_.createAverageNoise();
    EXPECT_EQ(sampleOf(noise[4]), 1);
    EXPECT_EQ(sampleOf(noise[5]), 3);
}

TEST_F(MMSEAppControllerTest, TheBufferIsQuietOnlyWithTenFrames) {
    for (int i = 0; i < 9; ++i)
        controller_.addSendData(audioFrame(FRAME_DATA, 0));
    EXPECT_FALSE(controller_.checkBufferFrame());
    controller_.addSendData(audioFrame(FRAME_DATA, 0));
    EXPECT_TRUE(controller_.checkBufferFrame());
}

TEST_F(MMSEAppControllerTest, AnOperationFrameAmongTheLastTenMakesTheBufferUnquiet) {
    controller_.addSendData(audioFrame(FRAME_END, 0));
    for (int i = 0; i < 9; ++i)
        controller_.addSendData(audioFrame(FRAME_DATA, 0));
    EXPECT_FALSE(controller_.checkBufferFrame());
    controller_.addSendData(audioFrame(FRAME_DATA, 0));
    EXPECT_TRUE(controller_.checkBufferFrame());
}

TEST_F(MMSEAppControllerTest, ANullFrameIsItsHeaderAndZeros) {
    EXPECT_EQ(controller_.createNullFrame(10), makeFrame(10));
    EXPECT_EQ(controller_.createNullFrame(9), makeFrame(9));
    EXPECT_EQ(controller_.createNullFrame(10).size(), 324u);
}
// Through the engines: input frames come back examined.
class ExaminedStream : public MMSEAppControllerTest {
  protected:
    // The error of the first getServerData that has one, and the frames taken before it.
    std::string errorOfStream() {
        return errorOf<AppControllerError>([this] {
            waitUntil([this] {
                controller_.process();
                taken_ += describedAll(
                    [this](ReceiveData& frame) { return controller_.getServerData(frame); });
                return !taken_.empty();
            });
        });
    }
    std::string taken_;
};

TEST_F(ExaminedStream, AFrameIsHandedOutAsItIs) {
    controller_.launch();
    const ReceiveData sent = audioFrame(FRAME_DATA, 7, -8);
    controller_.addReceiveData(sent);
    feed(1, 9);
    ReceiveData received;
    EXPECT_TRUE(waitUntil([&] {
        controller_.process();
        return controller_.getServerData(received);
    }));
    EXPECT_EQ(received, sent);
}

TEST_F(ExaminedStream, AFrameOfType5IsAnInvalidHeader) {
    engines_.vad.follow("emit 0\nsilent\n");
    engines_.mmse.follow("emit 0\nsilent\n");
    controller_.launch();
    feed(1, 1, 5);
    feed(2, 10);
    EXPECT_EQ(errorOfStream(), "[AppcontrollerError] Invalid header type : 5");
}

TEST_F(ExaminedStream, AFrameOfTypeMinusOneIsShownUnsigned) {
    engines_.vad.follow("emit 0\nsilent\n");
    engines_.mmse.follow("emit 0\nsilent\n");
    controller_.launch();
    feed(1, 1, -1);
    feed(2, 10);
    EXPECT_EQ(errorOfStream(), "[AppcontrollerError] Invalid header type : 4294967295");
}

TEST_F(ExaminedStream, TheMarkersOfTheVADEngineAreExamined) {
    engines_.vad.follow("start 1\n");
    controller_.launch();
    feed(1, 10);
    errorOfStream();
    EXPECT_EQ(log_.lines(), std::vector<std::string>{"DEBUG: operation header :1"});
}

TEST_F(ExaminedStream, MMSEFramesAreNotExamined) {
    engines_.vad.follow("start 1\n");
    controller_.launch();
    feed(1, 10);
    ReceiveData frame;
    EXPECT_TRUE(waitUntil([&] {
        controller_.process();
        return controller_.getMMSEData(frame);
    }));
    EXPECT_EQ(typeOf(frame), FRAME_START);
    EXPECT_EQ(log_.text(), "");
}

TEST_F(ExaminedStream, ClearedFramesAreNotExamined) {
    engines_.vad.follow("start 1\n");
    controller_.launch();
    feed(1, 10);
    ReceiveData frame;
    EXPECT_TRUE(waitUntil([&] {
        controller_.process();
        return controller_.getMMSEData(frame);
    }));
    controller_.clearProcessData();
    EXPECT_FALSE(controller_.getServerData(frame));
    EXPECT_EQ(log_.text(), "");
}

}  // namespace
