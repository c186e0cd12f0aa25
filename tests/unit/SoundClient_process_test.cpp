// SPDX-License-Identifier: MIT
// What a poll takes in, and what the sound client is told.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "SoundClient.h"
#include "error_text.h"
#include "faults.h"
#include "sound_client_link_fixture.h"

namespace {

using faults::Call;

TEST_F(SoundClientTest, ProcessOfASilentPeerPollsAndReadsNothing) {
    connect();
    client_.process();
    EXPECT_EQ(faults::microsecondsAsked(), 0);
    EXPECT_EQ(faults::callsOf(Call::READ), 0);
}

TEST_F(SoundClientTest, ProcessHasTheBytesParsed) {
    connect();
    switchEpdOff();
    peer_.send("EPD_ON\r\n\r\n");
    processUntil([this] { return client_.getEpdState(); });
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{"INFO: receive sound client packet : epd_off.",
                                        "INFO: receive sound client packet : epd_on."}));
}

TEST_F(SoundClientTest, OneReadTakesAtMost1024Bytes) {
    connect();
    // The keyword's last letter is byte 1,025.
    peer_.send(std::string(1018, 'x') + "EPD_OFF\r\n\r\n");
    processUntil([] { return faults::callsOf(Call::READ) > 0; });
    EXPECT_TRUE(client_.getEpdState());
    processUntil([this] { return !client_.getEpdState(); });
}

TEST_F(SoundClientTest, OnlyTheBytesReadAreParsed) {
    connect();
    faults::shortenNext(Call::READ, 4);
    peer_.send("EPD_OFF\r\n\r\n");
    processUntil([] { return faults::callsOf(Call::READ) == 1; });
    EXPECT_TRUE(client_.getEpdState());
    processUntil([this] { return !client_.getEpdState(); });
}

TEST_F(SoundClientTest, APeerThatHasClosedIsNotNoticed) {
    connect();
    peer_.close();
    processUntil([] { return faults::callsOf(Call::READ) >= 3; });
    EXPECT_TRUE(client_.isConnect());
    EXPECT_TRUE(client_.getEpdState());
}

TEST_F(SoundClientTest, ProcessOfAnUnconnectedLinkIsAnUnknownException) {
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] Unknown Exception.");
}

TEST_F(SoundClientTest, AResetIsAnUnknownExceptionAndNotAFailedRead) {
    connect();
    peer_.reset();
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] Unknown Exception.");
}

TEST_F(SoundClientTest, AFailedWaitIsAnUnknownException) {
    connect();
    faults::failNext(Call::SELECT, EINTR);
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] Unknown Exception.");
}

// A DATA header cut inside its digits takes the parser out of range.
TEST_F(SoundClientTest, AnErrorOfTheParserIsAnUnknownException) {
    connect();
    peer_.send("DATA 1");
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] Unknown Exception.");
}

TEST_F(SoundClientTest, ASoundClientProcessorErrorKeepsItsTagAndText) {
    connect();
    faults::afterNext(Call::SELECT, [] { throw SoundClientProcessorError("text"); });
    EXPECT_EQ(errorOfProcess(), "[SoundClientError] [SoundClientProcessorError] text");
}

// The play-sound state.

TEST_F(SoundClientTest, TheStateIsSentWhenItChangesOnly) {
    connect();
    client_.setPlaySoundState(false);
    client_.setPlaySoundState(true);
    client_.setPlaySoundState(true);
    client_.setPlaySoundState(false);
    client_.setPlaySoundState(false);
    EXPECT_EQ(peer_.receive(15), "epdoff\n\nepdon\n\n");
    EXPECT_EQ(faults::callsOf(Call::WRITE), 2);
}

TEST_F(SoundClientTest, EachCommandIsLoggedAtDebugLevel) {
    connect();
    client_.setPlaySoundState(true);
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{"DEBUG: send epd state to sound client. :epdoff", "", ""}));
    log_.forget();
    client_.setPlaySoundState(false);
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{"DEBUG: send epd state to sound client. :epdon", "", ""}));
}

TEST_F(SoundClientTest, AnUnsentCommandIsNotSentAgain) {
    connect();
    faults::failNext(Call::WRITE, EPIPE);
    EXPECT_EQ(errorOfCall([this] { client_.setPlaySoundState(true); }),
              "[SoundClientError] Sound client write failed.");
    client_.setPlaySoundState(true);
    EXPECT_EQ(faults::callsOf(Call::WRITE), 1);
}

TEST_F(SoundClientTest, AnUnsentCommandIsLoggedAllTheSame) {
    EXPECT_THROW(client_.setPlaySoundState(true), SoundClientError);
    EXPECT_EQ(log_.lines().at(0), "DEBUG: send epd state to sound client. :epdoff");
}

TEST_F(SoundClientTest, ANewConnectionIsNotToldTheState) {
    connect();
    client_.setPlaySoundState(true);
    client_.disconnect();
    client_.initialize();
    connect();
    client_.setPlaySoundState(true);
    client_.setPlaySoundState(false);
    EXPECT_EQ(peer_.receive(7), "epdon\n\n");
}

TEST_F(SoundClientTest, AllLinksShareTheStateLastSent) {
    connect();
    client_.setPlaySoundState(true);
    SoundClient other;
    EXPECT_NO_THROW(other.setPlaySoundState(true));  // not connected, but nothing is to be sent
    EXPECT_THROW(other.setPlaySoundState(false), SoundClientError);
}

// In a process of its own, because the state is that of a process that has just started.
TEST(SoundClientAtProcessStart, TheFirstFalseSendsNothingAndTheFirstTrueDoes) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto firstCalls = [] {
        SoundClient client;
        client.setPlaySoundState(false);  // would throw: there is no connection
        const std::string error =
            errorOf<SoundClientError>([&] { client.setPlaySoundState(true); });
        _exit(error == "[SoundClientError] Sound client write failed." ? 7 : 8);
    };
    EXPECT_EXIT(firstCalls(), testing::ExitedWithCode(7), "");
}

}  // namespace
