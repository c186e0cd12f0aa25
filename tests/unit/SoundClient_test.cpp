// SPDX-License-Identifier: MIT
#include "SoundClient.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "faults.h"
#include "hermetic_test.h"
#include "loopback_peer.h"
#include "sound_client_link_fixture.h"

namespace {

using faults::Call;

static_assert(std::has_virtual_destructor_v<SoundClient>);

TEST_F(SoundClientTest, InitializeReturnsOne) {
    EXPECT_EQ(client_.initialize(), 1);
}

TEST_F(SoundClientTest, ErrorTextCarriesTheTag) {
    EXPECT_STREQ(SoundClientError("text").what(), "[SoundClientError] text");
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, SoundClientError>));
}

TEST_F(SoundClientTest, ConnectAndDisconnectMoveTheState) {
    EXPECT_FALSE(client_.isConnect());
    connect();
    EXPECT_TRUE(client_.isConnect());
    EXPECT_EQ(client_.disconnect(), 0);
    EXPECT_FALSE(client_.isConnect());
    EXPECT_TRUE(peer_.seesEnd());
}

TEST_F(SoundClientTest, ConnectWithoutAListenerNamesAddressAndPort) {
    const auto before = openDescriptors();
    const uint16_t port = freePort();
    EXPECT_EQ(errorOfCall([&] { client_.connect("127.0.0.1", port); }),
              "[SoundClientError] Sound client connect failed. IP:127.0.0.1 PORT:" +
                  std::to_string(port));
    EXPECT_FALSE(client_.isConnect());
    closeOpenedSince(before);
}

TEST_F(SoundClientTest, ASecondConnectClosesTheFirst) {
    connect();
    LoopbackPeer first = std::move(peer_);
    connect();
    EXPECT_TRUE(first.seesEnd());
    EXPECT_TRUE(client_.isConnect());
}

TEST_F(SoundClientTest, ASecondConnectPassesOnTheErrorOfTheDisconnect) {
    connect();
    faults::failNext(Call::CLOSE, EIO);
    EXPECT_EQ(errorOfCall([this] { client_.connect("127.0.0.1", listener_.port()); }),
              "[SoundClientError] Sound client disconnect failed.");
}

TEST_F(SoundClientTest, ASecondConnectResetsTheParser) {
    connect();
    switchEpdOff();
    connect();
    EXPECT_TRUE(client_.getEpdState());
}

TEST_F(SoundClientTest, AFailedDisconnectThrowsAndKeepsTheState) {
    connect();
    faults::failNext(Call::CLOSE, EIO);
    EXPECT_EQ(errorOfCall([this] { client_.disconnect(); }),
              "[SoundClientError] Sound client disconnect failed.");
    EXPECT_TRUE(client_.isConnect());
}

TEST_F(SoundClientTest, AFailedDisconnectResetsTheParserFirst) {
    connect();
    switchEpdOff();
    faults::failNext(Call::CLOSE, EIO);
    EXPECT_THROW(client_.disconnect(), SoundClientError);
    EXPECT_TRUE(client_.getEpdState());
}

TEST_F(SoundClientTest, DisconnectSwitchesEpdOn) {
    connect();
    switchEpdOff();
    client_.disconnect();
    EXPECT_TRUE(client_.getEpdState());
}

// Kept, the partial block would swallow the command as its payload.
TEST_F(SoundClientTest, DisconnectForgetsAPartialBlock) {
    connect();
    peer_.send("DATA 20\n\nab");
    processUntil([] { return faults::callsOf(Call::READ) == 1; });
    client_.disconnect();
    connect();
    switchEpdOff();
}

TEST_F(SoundClientTest, DisconnectingAnUnconnectedLinkReturnsZeroWithEpdOn) {
    EXPECT_EQ(client_.disconnect(), 0);
    EXPECT_TRUE(client_.getEpdState());
    EXPECT_EQ(faults::callsOf(Call::CLOSE), 0);
}

TEST_F(SoundClientTest, InitializeSwitchesEpdOn) {
    connect();
    switchEpdOff();
    client_.initialize();
    EXPECT_TRUE(client_.getEpdState());
}

TEST_F(SoundClientTest, TheDestructorClosesTheSocket) {
    {
        SoundClient other;
        other.connect("127.0.0.1", listener_.port());
        peer_ = listener_.accept();
    }
    EXPECT_TRUE(peer_.seesEnd());
}

TEST_F(SoundClientTest, BytesTravelBothWays) {
    connect();
    EXPECT_EQ(client_.write("hello", 5), 5);
    EXPECT_EQ(peer_.receive(5), "hello");
    peer_.send("world");
    char buffer[16] = {};
    EXPECT_EQ(client_.read(buffer, sizeof(buffer), 10000), 5);
    EXPECT_STREQ(buffer, "world");
}

TEST_F(SoundClientTest, ReadReturnsZeroOnTimeout) {
    connect();
    char byte = 0;
    EXPECT_EQ(client_.read(&byte, 1, 10), 0);
}

TEST_F(SoundClientTest, ReadAndWriteOfNothingAreInvalid) {
    char byte = 0;
    const std::string invalid = "[SoundClientError] Invalid argument.";
    EXPECT_EQ(errorOfCall([&] { client_.read(&byte, 0, 0); }), invalid);
    EXPECT_EQ(errorOfCall([&] { client_.read(nullptr, 1, 0); }), invalid);
    EXPECT_EQ(errorOfCall([&] { client_.write(&byte, 0); }), invalid);
    EXPECT_EQ(errorOfCall([&] { client_.write(nullptr, 1); }), invalid);
}

TEST_F(SoundClientTest, FailedTransfersThrow) {
    char byte = 0;
    EXPECT_EQ(errorOfCall([&] { client_.read(&byte, 1, 0); }),
              "[SoundClientError] Sound client read failed.");
    EXPECT_EQ(errorOfCall([&] { client_.write(&byte, 1); }),
              "[SoundClientError] Sound client write failed.");
}

}  // namespace
