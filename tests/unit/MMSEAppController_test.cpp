// SPDX-License-Identifier: MIT
#include "MMSEAppController.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "AppConnector.h"
#include "audio_frames.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "scripted_engines.h"
#include "wait_until.h"

namespace {

using faults::Call;

class Controller : public MMSEAppController {
  public:
    using MMSEAppController::addNoiseData;
    using MMSEAppController::addSendData;
    using MMSEAppController::addVADData;
    using MMSEAppController::checkBufferFrame;
    using MMSEAppController::createAverageNoise;
    using MMSEAppController::createNullFrame;
    using MMSEAppController::renewNoiseModel;
};

class MMSEAppControllerTest : public HermeticTest {
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

    static int uniformSample(ReceiveQueue frames) {
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
    Controller controller_;
};

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
    faults::failNext(Call::Fork, EAGAIN);
    const auto before = openDescriptors();
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.launch(); }),
              "[AppcontrollerError] VAD connector launch failed. [AppConnectorError] fork failed.");
    closeOpenedSince(before);
}

TEST_F(MMSEAppControllerTest, TheDestructorDoesNotFailWithoutInitialize) {
    EXPECT_NO_FATAL_FAILURE({ MMSEAppController never_initialized; });
    EXPECT_TRUE(std::has_virtual_destructor_v<MMSEAppController>);
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
    EXPECT_EQ(faults::callsOf(Call::Write), 0);
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

// When the noise model is renewed.

TEST_F(MMSEAppControllerTest, The500thAudioFrameRenewsTheNoiseModel) {
    examine(FRAME_DATA, 499);
    EXPECT_EQ(renewals(), 0);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, TheNextRenewalComesAtFrame1000) {
    examine(FRAME_DATA, 999);
    EXPECT_EQ(renewals(), 1);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 2);
}

TEST_F(MMSEAppControllerTest, ARenewalIsLoggedWithTheSizeOfTheDelayLine) {
    feed(1, 7);
    examine(FRAME_DATA, 500);
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{"INFO: renew noize model.",
                                                      "DEBUG: clear bufffer size:7"}));
}

TEST_F(MMSEAppControllerTest, AnEndFrameAt500PutsTheRenewalOffTo1000) {
    examine(FRAME_DATA, 499);
    examine(FRAME_END);
    examine(FRAME_DATA, 499);
    EXPECT_EQ(renewals(), 0);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, AnOperationFrameTenFramesBackPreventsTheRenewal) {
    examine(FRAME_DATA, 490);
    examine(FRAME_TOF);
    examine(FRAME_DATA, 9);
    EXPECT_EQ(renewals(), 0);
}

TEST_F(MMSEAppControllerTest, AnOperationFrameElevenFramesBackDoesNot) {
    examine(FRAME_DATA, 489);
    examine(FRAME_TOF);
    examine(FRAME_DATA, 10);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, InsideAnUtteranceThereIsNoRenewal) {
    examine(FRAME_START);
    examine(FRAME_DATA, 499);
    EXPECT_TRUE(controller_.checkBufferFrame());
    EXPECT_EQ(renewals(), 0);
}

TEST_F(MMSEAppControllerTest, AnInvalidFrameCountsTowardTheRenewalButIsNotStored) {
    examine(FRAME_DATA, 498);
    EXPECT_THROW(examine(5), AppControllerError);
    EXPECT_TRUE(controller_.checkBufferFrame());
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, AFrameThatCannotBeParsedDoesNotCount) {
    examine(FRAME_DATA, 499);
    EXPECT_THROW(controller_.addVADData(ReceiveData(3)), std::bad_alloc);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, InitializeAndClearDataStartTheCountAnew) {
    examine(FRAME_DATA, 499);
    initialize();
    examine(FRAME_DATA, 499);
    controller_.clearData();
    examine(FRAME_DATA, 499);
    EXPECT_EQ(renewals(), 0);
    examine(FRAME_DATA);
    EXPECT_EQ(renewals(), 1);
}

TEST_F(MMSEAppControllerTest, InitializeAndClearDataEndAnUtterance) {
    examine(FRAME_START);
    controller_.clearData();
    examine(FRAME_DATA, 10, 3);
    EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(0)), 3);
    examine(FRAME_START);
    initialize();
    examine(FRAME_DATA, 10, 4);
    EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(0)), 4);
}

TEST_F(MMSEAppControllerTest, InitializeAndClearDataForgetTheNoise) {
    addBlocks({5});
    controller_.clearData();
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
    addBlocks({5});
    initialize();
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
}

TEST_F(MMSEAppControllerTest, ClearDataForgetsTheNoiseBlockInTheMaking) {
    examine(FRAME_DATA, 9, 5);
    controller_.clearData();
    examine(FRAME_DATA, 9, 6);
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
}

TEST_F(MMSEAppControllerTest, ClearDataForgetsTheLastFrames) {
    examine(FRAME_DATA, 10);
    controller_.clearData();
    EXPECT_FALSE(controller_.checkBufferFrame());
}

// The average.

TEST_F(MMSEAppControllerTest, NineNoiseFramesMakeNoBlockAndTheTenthDoes) {
    examine(FRAME_DATA, 9, 8);
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
    examine(FRAME_DATA, 1, 8);
    EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(0)), 8);
}

TEST_F(MMSEAppControllerTest, WithoutABlockTheAverageIsTenSilentFrames) {
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 0);
}

TEST_F(MMSEAppControllerTest, OneBlockIsItsOwnAverage) {
    for (const int sample : {0, 1, -1, 32767, -32768, -3}) {
        controller_.clearData();
        EXPECT_EQ(averageOf({sample}), sample);
    }
}

TEST_F(MMSEAppControllerTest, TheAverageIsTakenPositionByPosition) {
    for (int frame = 0; frame < 10; ++frame)
        controller_.addNoiseData(audioFrame(FRAME_DATA, frame, -frame));
    for (int frame = 0; frame < 10; ++frame)
        controller_.addNoiseData(audioFrame(FRAME_DATA, 3 * frame, -3 * frame));
    const ReceiveQueue noise = controller_.createAverageNoise();
    EXPECT_EQ(noise[7], audioFrame(FRAME_DATA, 14, -14));
    EXPECT_EQ(noise[1], audioFrame(FRAME_DATA, 2, -2));
}

TEST_F(MMSEAppControllerTest, TheHeadersOfNoiseFramesAreNotLookedAt) {
    for (int i = 0; i < 10; ++i)
        controller_.addNoiseData(audioFrame(FRAME_TOF, 6, 6));
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 6);
}

TEST_F(MMSEAppControllerTest, OverTwoBlocksASumOfMinusThreeGivesMinusTwo) {
    EXPECT_EQ(averageOf({-1, -2}), -2);
}

TEST_F(MMSEAppControllerTest, OverTwoBlocksASumOfThreeGivesOne) {
    EXPECT_EQ(averageOf({1, 2}), 1);
}

// The unsigned division: negative averages over three blocks are large positive samples.
TEST_F(MMSEAppControllerTest, OverThreeBlocksASumOfMinusThreeGives21844) {
    EXPECT_EQ(averageOf({-1, -1, -1}), 21844);
}

TEST_F(MMSEAppControllerTest, OverThreeBlocksASumOfMinusOneGives21845) {
    EXPECT_EQ(averageOf({0, -1, 0}), 21845);
}

TEST_F(MMSEAppControllerTest, OverThreeBlocksASumOfMinus300Gives21745) {
    EXPECT_EQ(averageOf({-100, -100, -100}), 21745);
}

TEST_F(MMSEAppControllerTest, OverThreeBlocksAPositiveSumIsRoundedDown) {
    EXPECT_EQ(averageOf({3, 4, 4}), 3);
    controller_.clearData();
    EXPECT_EQ(averageOf({32767, 32767, 32767}), 32767);
}

TEST_F(MMSEAppControllerTest, OverThreeBlocksTheLowestSampleGivesMinus10923) {
    EXPECT_EQ(averageOf({-32768, -32768, -32768}), -10923);
}

TEST_F(MMSEAppControllerTest, OverFourBlocksSumsOf8AndMinus5Give2AndMinus2) {
    EXPECT_EQ(averageOf({1, 2, 2, 3}), 2);
    controller_.clearData();
    EXPECT_EQ(averageOf({-1, -1, -1, -2}), -2);
}

TEST_F(MMSEAppControllerTest, OfSevenBlocksTheNewestFourAreAveraged) {
    EXPECT_EQ(averageOf({10, 20, 30, 40, 50, 60, 70}), 55);
}

TEST_F(MMSEAppControllerTest, TheOlderBlocksAreGoneForGood) {
    averageOf({10, 20, 30, 40, 50, 60, 70});
    EXPECT_EQ(averageOf({100}), (50 + 60 + 70 + 100) / 4);
}

TEST_F(MMSEAppControllerTest, FourBlocksSurviveAnAverage) {
    averageOf({1, 2, 3, 6});
    EXPECT_EQ(uniformSample(controller_.createAverageNoise()), 3);
}

TEST_F(MMSEAppControllerTest, AFrameOfMoreThan160SamplesIsOutOfRange) {
    for (int i = 0; i < 10; ++i)
        controller_.addNoiseData(makeFrame(FRAME_DATA, 322));
    EXPECT_EQ(errorOf<std::out_of_range>([this] { controller_.createAverageNoise(); }),
              "vector::_M_range_check");
}

TEST_F(MMSEAppControllerTest, OutOfRangeLeavesThroughTheExamination) {
    for (int i = 0; i < 499; ++i)
        controller_.addVADData(makeFrame(FRAME_DATA, 322));
    EXPECT_EQ(errorOf<std::out_of_range>([this] { examine(FRAME_DATA); }),
              "vector::_M_range_check");
}

TEST_F(MMSEAppControllerTest, AShortFrameAddsTheSamplesThatItHas) {
    for (int i = 0; i < 10; ++i)
        controller_.addNoiseData(makeFrame(FRAME_DATA, 2, 1));
    EXPECT_EQ(controller_.createAverageNoise().at(0), audioFrame(FRAME_DATA, 0x0101, 0));
}

TEST_F(MMSEAppControllerTest, ANoiseFrameOfAnOddSizeThrowsWhatTheParserThrows) {
    for (int i = 0; i < 10; ++i)
        controller_.addNoiseData(makeFrame(FRAME_DATA, 319));
    EXPECT_THROW(controller_.createAverageNoise(), std::invalid_argument);
}

// The renewal: engines restarted, twelve priming frames ahead of the live audio.
class NoiseModelRenewal : public MMSEAppControllerTest {
  protected:
    NoiseModelRenewal() {
        controller_.launch();
        EXPECT_TRUE(engines_.mmse.hasLogged("start") && engines_.vad.hasLogged("start"));
    }

    // Ten noise frames numbered 1 to 10 are gathered last, so each priming frame has its number.
    void renew() {
        for (int i = 0; i < 500; ++i)
            controller_.addVADData(audioFrame(FRAME_DATA, 1 + i % 10));
        EXPECT_EQ(renewals(), 1);
    }

    static constexpr const char* FIRST_FOUR = "10:0 9:0 0:1 0:2";
};

TEST_F(NoiseModelRenewal, RestartsBothEngines) {
    const auto mmse = engines_.mmse.pids();
    const auto vad = engines_.vad.pids();
    renew();
    EXPECT_TRUE(engines_.mmse.hasLogged("start", 2) && engines_.vad.hasLogged("start", 2));
    EXPECT_EQ(kill(mmse.at(0), 0), -1);
    EXPECT_EQ(kill(vad.at(0), 0), -1);
}

TEST_F(NoiseModelRenewal, TheNextCallForwardsFourFrames) {
    renew();
    feed(101, 101);
    passUntilEngineHas("frame 0 2");
    EXPECT_EQ(engines_.mmse.frames(), FIRST_FOUR);
}

TEST_F(NoiseModelRenewal, NothingIsForwardedBeforeTheNextCall) {
    renew();
    faults::clear();
    for (int i = 0; i < 20; ++i)
        controller_.process();
    EXPECT_EQ(faults::callsOf(Call::Write), 0);
}

TEST_F(NoiseModelRenewal, EachLaterCallForwardsOneFrame) {
    renew();
    feed(101, 102);
    passUntilEngineHas("frame 0 3");
    EXPECT_EQ(engines_.mmse.frames(), std::string(FIRST_FOUR) + " 0:3");
}

TEST_F(NoiseModelRenewal, LiveAudioResumesNineCallsLate) {
    renew();
    feed(101, 110);
    passUntilEngineHas("frame 0 101");
    EXPECT_EQ(engines_.mmse.frames(),
              std::string(FIRST_FOUR) + " 0:3 0:4 0:5 0:6 0:7 0:8 0:9 0:10 0:101");
}

TEST_F(NoiseModelRenewal, DelayedLiveFramesNeverReachAnEngine) {
    feed(51, 59);
    renew();
    feed(101, 110);
    passUntilEngineHas("frame 0 101");
    EXPECT_EQ(engines_.mmse.frames(),
              std::string(FIRST_FOUR) + " 0:3 0:4 0:5 0:6 0:7 0:8 0:9 0:10 0:101");
}

TEST_F(NoiseModelRenewal, ForwardedFramesThatWaitAreDropped) {
    feed(41, 50);
    renew();
    feed(101, 101);
    passUntilEngineHas("frame 0 2");
    EXPECT_EQ(engines_.mmse.frames(), FIRST_FOUR);
}

TEST_F(NoiseModelRenewal, TheNoiseModelSurvives) {
    renew();
    EXPECT_EQ(sampleOf(controller_.createAverageNoise().at(4)), 5);
}

TEST_F(NoiseModelRenewal, AConnectorErrorOfTheRestartPassesThrough) {
    faults::failNext(Call::Kill, EPERM);
    EXPECT_EQ(errorOf<AppConnectorError>([this] { controller_.renewNoiseModel(); }),
              withSystemText("[AppConnectorError] Kill child process failed. error : ", EPERM));
}

TEST_F(NoiseModelRenewal, AFailedRelaunchPassesThrough) {
    faults::failNext(Call::Pipe, EMFILE);
    EXPECT_EQ(errorOf<AppControllerError>([this] { controller_.renewNoiseModel(); }),
              withSystemText("[AppcontrollerError] VAD connector launch failed. "
                             "[AppConnectorError] Parent to child pipe create failed. error : ",
                             EMFILE));
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
