// SPDX-License-Identifier: MIT
// DATA blocks: when they are taken, and what a header that has not arrived whole does.
#include "SoundClientProcessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "sound_client_fixture.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class SoundClientData : public SoundClientFixture {};

TEST_F(SoundClientData, DataAtTheFrontWaitsForOneByteMore) {
    const std::string payload = ramp(640);
    receive(dataBlock(payload));
    EXPECT_THAT(frames(), IsEmpty());
    receive("x");
    EXPECT_THAT(frames(), ElementsAre(frameWith(0, payload.substr(0, 320)),
                                      frameWith(0, payload.substr(320))));
    EXPECT_TRUE(bytesAreLeft());
}

TEST_F(SoundClientData, DataBehindOtherBytesIsTakenAtOnce) {
    receive("abc" + dataBlock(ramp(320)));
    EXPECT_THAT(frames(), ElementsAre(frameWith(0, ramp(320))));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientData, DataBehindOneByteIsTakenAtOnce) {
    receive("\n" + dataBlock("abcd"));
    EXPECT_THAT(types(), ElementsAre(0));
}

// Bytes of an earlier read count as well, were they ever so many.
TEST_F(SoundClientData, DataBehindBytesOfAnEarlierReadIsTakenAtOnce) {
    receive(std::string(5000, '-'));
    receive(dataBlock("abcd"));
    EXPECT_THAT(types(), ElementsAre(0));
    EXPECT_FALSE(bytesAreLeft());
}

TEST_F(SoundClientData, DataBehindOtherBytesWaitsForItsWholePayload) {
    receive("0123456789" + dataBlock(ramp(320)).substr(0, 329));
    EXPECT_THAT(frames(), IsEmpty());
    receive(ramp(320).substr(319));
    EXPECT_THAT(types(), ElementsAre(0));
}

TEST_F(SoundClientData, TheBlockBehindReleasesDataAtTheFront) {
    receive(dataBlock("ab") + dataBlock("cd"));
    EXPECT_THAT(types(), ElementsAre(0));
    receive("\n");
    EXPECT_THAT(types(), ElementsAre(0));
}

TEST_F(SoundClientData, DataMayBeSplitAcrossAnyNumberOfReads) {
    receive("DATA 320\r\n");
    for (const char byte : ramp(320))
        receive(std::string(1, byte));
    EXPECT_THAT(frames(), IsEmpty());
    receive("x");
    EXPECT_THAT(frames(), ElementsAre(frameWith(0, ramp(320))));
}

TEST_F(SoundClientData, EmptyDataBehindOneByteMoreGivesNoFrame) {
    receive("DATA 0\n\n");
    receive("x");
    EXPECT_THAT(frames(), IsEmpty());
    EXPECT_TRUE(bytesAreLeft());
}

TEST_F(SoundClientData, DataIsLoggedAtEveryAttempt) {
    receive(dataBlock("abcd").substr(0, 9));
    receive("a");
    parser_.process();
    EXPECT_THAT(log_.lines(), ElementsAre(DATA_LINE, DATA_LINE, DATA_LINE));
}

TEST_F(SoundClientData, KeywordsInAPayloadAreNotTaken) {
    const std::string payload = "END\r\n\r\nBEGIN\r\n\r\nEPD_OFF\r\n\r\nDATA 3\n\nCANCEL";
    receive(dataBlock(payload) + "x");
    EXPECT_EQ(frames().at(0), frameWith(0, payload + std::string(320 - payload.size(), '\0')));
    EXPECT_TRUE(parser_.getEpdState());
    EXPECT_THAT(log_.lines(), ElementsAre(DATA_LINE));
}

TEST_F(SoundClientData, KeywordsInAnIncompletePayloadAreNotTaken) {
    receive("DATA 100\n\nEND\r\n\r\n");
    EXPECT_THAT(frames(), IsEmpty());
    EXPECT_THAT(log_.lines(), ElementsAre(DATA_LINE));
}

TEST_F(SoundClientData, PayloadBytesPassUnchanged) {
    std::string payload;
    for (int byte = 0; byte < 320; ++byte)
        payload.push_back(static_cast<char>(byte));
    receive(dataBlock(payload) + "x");
    EXPECT_THAT(frames(), ElementsAre(frameWith(0, payload)));
}

TEST_F(SoundClientData, AnyBlanksPartKeywordAndLength) {
    for (const char* const header :
         {"DATA 4", "DATA\t4", "DATA\r\n4", "DATA \t\r\n  4", "DATA 004"})
        receive(header + std::string("\n\nabcdx"));
    EXPECT_THAT(types(), ElementsAre(0, 0, 0, 0, 0));
}

TEST_F(SoundClientData, AnyTwoBytesPartLengthAndPayload) {
    receive("DATA 4..abcdx" + std::string("DATA 4\0\0abcdx", 13) + "DATA 4 5abcdx");
    const ReceiveData frame = frameWith(0, "abcd" + std::string(316, '\0'));
    EXPECT_THAT(frames(), ElementsAre(frame, frame, frame));
}

TEST_F(SoundClientData, BytesGluedToTheKeywordBelongToIt) {
    receive("DATA12END-4 4\n\nabcdx");
    EXPECT_THAT(frames(), ElementsAre(frameWith(0, "abcd" + std::string(316, '\0'))));
    EXPECT_THAT(log_.lines(), ElementsAre(DATA_LINE));
}

TEST_F(SoundClientData, HeaderCutInItsDigitsFailsWhenTheyGiveLessThanWasReceived) {
    EXPECT_TRUE(receiveFails("DATA 6"));
    EXPECT_THAT(log_.lines(), ElementsAre(DATA_LINE));
}

TEST_F(SoundClientData, HeaderCutInItsDigitsWaitsWhenTheyGiveMoreThanWasReceived) {
    EXPECT_FALSE(receiveFails("DATA 7"));
    EXPECT_FALSE(receiveFails("0\n"));
    receive("\n" + ramp(71));
    EXPECT_THAT(types(), ElementsAre(0));
}

TEST_F(SoundClientData, HeaderCutInItsTerminatorFailsLikeOneCutInItsDigits) {
    EXPECT_TRUE(receiveFails("DATA 7\n"));
    parser_.initialize();
    EXPECT_FALSE(receiveFails("DATA 8\n"));
}

TEST_F(SoundClientData, HeaderWithItsTerminatorDoesNotFail) {
    EXPECT_FALSE(receiveFails("DATA 1\n\n"));
    EXPECT_FALSE(receiveFails("x"));
}

// 20 bytes ahead of the keyword: the limit is 27, not 7.
TEST_F(SoundClientData, BytesAheadOfACutHeaderCount) {
    EXPECT_TRUE(receiveFails(std::string(20, '-') + "DATA 27"));
    parser_.initialize();
    EXPECT_FALSE(receiveFails(std::string(20, '-') + "DATA 28"));
}

TEST_F(SoundClientData, BytesOfEarlierReadsAheadOfACutHeaderCount) {
    for (int read = 0; read < 70; ++read)
        receive(std::string(1024, '-'));
    EXPECT_FALSE(receiveFails("DATA 71691"));
    parser_.initialize();
    for (int read = 0; read < 70; ++read)
        receive(std::string(1024, '-'));
    EXPECT_TRUE(receiveFails("DATA 71690"));
}

TEST_F(SoundClientData, BytesOfConsumedBlocksAheadOfACutHeaderDoNotCount) {
    EXPECT_FALSE(receiveFails(std::string(100, '-') + command("BEGIN") + "DATA 7"));
    EXPECT_THAT(types(), ElementsAre(9, 1));
}

// What was received stays as if nothing had been consumed, so the next call handles it again.
TEST_F(SoundClientData, BlocksAheadOfACutHeaderAreHandledAgain) {
    EXPECT_TRUE(receiveFails(command("BEGIN") + "DATA 4"));
    EXPECT_THAT(types(), ElementsAre(9, 1));
    receive("\n\nabcdx");
    EXPECT_THAT(types(), ElementsAre(9, 1, 0));
    EXPECT_THAT(log_.lines(), ElementsAre(BEGIN_LINE, DATA_LINE, BEGIN_LINE, DATA_LINE));
}

TEST_F(SoundClientData, ACutHeaderFailsAgainUntilMoreArrives) {
    EXPECT_TRUE(receiveFails(command("EPD_OFF") + "DATA 0"));
    EXPECT_FALSE(parser_.getEpdState());
    EXPECT_THROW(parser_.process(), std::out_of_range);
    EXPECT_TRUE(receiveFails("\n"));
    EXPECT_FALSE(receiveFails("\n"));
    EXPECT_THAT(log_.lines(), SizeIs(8));
}

TEST_F(SoundClientData, ACutHeaderFailsBehindAWaitThatRememberedItsBeginning) {
    EXPECT_FALSE(receiveFails(std::string(30, '-') + "DATA 399"));
    EXPECT_FALSE(receiveFails("\n"));
    parser_.initialize();
    EXPECT_FALSE(receiveFails("DATA "));
    EXPECT_TRUE(receiveFails("1"));
    EXPECT_FALSE(receiveFails("2\n\n"));
    receive("twelve bytes.");
    EXPECT_EQ(frames().at(0), frameWith(0, "twelve bytes" + std::string(308, '\0')));
}

TEST_F(SoundClientData, HeaderWithoutDigitsYetWaits) {
    for (const char* const part : {"DATA", "x", " ", "\r\n"})
        EXPECT_FALSE(receiveFails(part));
    EXPECT_FALSE(receiveFails("14\n\nfourteen bytes."));
    EXPECT_THAT(types(), ElementsAre(0));
}

TEST_F(SoundClientData, DataWithoutANumberWaitsForEver) {
    for (const char* const header : {"DATA x\n\n", "DATA -4\n\n", "DATA +4\n\n", "DATA .5\n\n"}) {
        receive(header);
        receive(command("END") + dataBlock("abcd") + command("EPD_OFF") + std::string(2000, 'x'));
        EXPECT_THAT(frames(), IsEmpty()) << header;
        EXPECT_TRUE(parser_.getEpdState()) << header;
        EXPECT_THAT(log_.lines(), AllOf(SizeIs(2), Each(DATA_LINE))) << header;
        parser_.initialize();
        log_.forget();
    }
}

TEST_F(SoundClientData, DataWithoutABlankBehindItsKeywordWaitsForTheBlank) {
    receive("DATA640\v\f-");
    receive(std::string(700, 'x'));
    EXPECT_THAT(frames(), IsEmpty());
    receive(" 4\n\nabcd-");
    EXPECT_THAT(types(), ElementsAre(0));
}

TEST_F(SoundClientData, DataOfMoreThanThirtyTwoBitsWaitsForEver) {
    for (const char* const digits :
         {"4294967296", "4294967300", "18446744073709551620", "42949672960"}) {
        EXPECT_FALSE(receiveFails(std::string("DATA ") + digits)) << digits;
        EXPECT_FALSE(receiveFails("\n\nabcdxyz" + command("BEGIN"))) << digits;
        EXPECT_THAT(frames(), IsEmpty()) << digits;
        parser_.initialize();
    }
}

TEST_F(SoundClientData, DataOfTheLargestLengthWaits) {
    EXPECT_FALSE(receiveFails("DATA 4294967295"));
    EXPECT_FALSE(receiveFails("\n\n" + command("BEGIN") + std::string(2000, 'x')));
    EXPECT_THAT(frames(), IsEmpty());
}

}  // namespace
