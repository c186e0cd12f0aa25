// SPDX-License-Identifier: MIT
#include "BridgeMessage.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using node::Level;

// Of a line that is one message.
node::Message messageOf(const std::string& line) {
    const std::vector<node::Message> messages = node::parseBridgeLine(line);
    EXPECT_EQ(messages.size(), 1U) << line;
    return messages.empty() ? node::Message{} : messages.front();
}
std::string textOf(const std::string& line) {
    return messageOf(line).text;
}
Level levelOf(const std::string& line) {
    return messageOf(line).level;
}

TEST(BridgeMessage, ALineOfTheLogIsTextAndLevelWithoutItsTime) {
    EXPECT_EQ(textOf("- 14:03:27.045 INFO: receive sound client packet : epd_on."),
              "receive sound client packet : epd_on.");
    EXPECT_EQ(levelOf("- 14:03:27.045 INFO: renew noize model."), Level::INFO);
    EXPECT_EQ(levelOf("- 14:03:27.045 ERROR: Terminate application."), Level::ERROR);
    EXPECT_EQ(levelOf("- 00:00:00.000 WARNING: Socket accept timeout occured."), Level::WARNING);
    EXPECT_EQ(levelOf("- 23:59:59.999 DEBUG: operation header :9"), Level::DEBUG);
    EXPECT_EQ(textOf("- 23:59:59.999 DEBUG: operation header :9"), "operation header :9");
}

TEST(BridgeMessage, IsTheBridges) {
    EXPECT_TRUE(messageOf("- 14:03:27.045 INFO: text").from_bridge);
    EXPECT_TRUE(messageOf("text").from_bridge);
}

TEST(BridgeMessage, TextsOfTheMainLoopThatTellOfAnEndAreErrors) {
    for (const std::string line :
         {"[VoiceServerError] Data connector read failed.", "[SoundClientError] Unknown Exception.",
          "[AppcontrollerError] Invalid header type : 7",
          "[ROSConnectorError] ROS connector read failed.", "[FATAL] Unknown Exception",
          "[FATAL] [AppcontrollerError] VAD connector launch failed. "}) {
        EXPECT_EQ(levelOf(line), Level::ERROR) << line;
    }
    EXPECT_EQ(textOf("[FATAL] Unknown Exception"), "[FATAL] Unknown Exception");
}

TEST(BridgeMessage, OtherTextsAreInformation) {
    for (const std::string line : {"Connecting to Server ... ", "[Connected]", "an engine's words"})
        EXPECT_EQ(levelOf(line), Level::INFO) << line;
}

TEST(BridgeMessage, BlanksAtTheEndGo) {
    EXPECT_EQ(textOf("Connecting to Server ... "), "Connecting to Server ...");
    EXPECT_EQ(textOf("text \r"), "text");
}

// The bridge begins a line for each attempt and ends it with the log's line of why it failed. With
// the time in it no two attempts would be the same message.
TEST(BridgeMessage, AnAttemptThatFailsAtOnceIsTwoMessagesWithoutTime) {
    for (const std::string time : {"21:18:11.590", "21:18:16.601"}) {
        const auto messages =
            node::parseBridgeLine("Connecting to Server ... - " + time +
                                  " WARNING: Socket connect error. error : Connection refused");
        ASSERT_EQ(messages.size(), 2U);
        EXPECT_EQ(messages[0].text, "Connecting to Server ...");
        EXPECT_EQ(messages[0].level, Level::INFO);
        EXPECT_EQ(messages[1].text, "Socket connect error. error : Connection refused");
        EXPECT_EQ(messages[1].level, Level::WARNING);
    }
}

TEST(BridgeMessage, AnAttemptThatSucceedsIsOneMessage) {
    EXPECT_EQ(textOf("Connecting to Server ... [Connected]"),
              "Connecting to Server ... [Connected]");
}

TEST(BridgeMessage, WhatOnlyLooksLikeATimeIsText) {
    for (const std::string line : {"- 14:03:27 INFO: text", "14:03:27.045 INFO: text",
                                   "- 14:03:2x.045 INFO: text", "- 14.03.27.045 INFO: text", "-"})
        EXPECT_EQ(textOf(line), line);
}

TEST(BridgeMessage, ATimeWithoutALevelIsInformation) {
    EXPECT_EQ(textOf("- 14:03:27.045 DEBUG9: text"), "DEBUG9: text");
    EXPECT_EQ(levelOf("- 14:03:27.045 DEBUG9: text"), Level::INFO);
}

TEST(BridgeMessage, AnEmptyLineIsNoMessage) {
    for (const std::string line : {"", "  ", "\r"})
        EXPECT_TRUE(node::parseBridgeLine(line).empty());
}

TEST(BridgeMessage, ConnectedIsSaidByOneText) {
    EXPECT_TRUE(node::saysConnected("[Connected]"));
    EXPECT_TRUE(node::saysConnected("Connecting to Server ... [Connected]"));
    EXPECT_FALSE(node::saysConnected("Connecting to Server ..."));
    EXPECT_FALSE(node::saysConnected("Connected"));
    EXPECT_FALSE(node::saysConnected(""));
}

}  // namespace
