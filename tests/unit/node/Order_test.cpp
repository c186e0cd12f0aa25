// SPDX-License-Identifier: MIT
#include "Order.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using node::Order;
using testing::HasSubstr;

std::string errorOf(const std::string& line) {
    std::string error;
    EXPECT_FALSE(node::parseOrder(line, error)) << line;
    return error;
}
Order orderOf(const std::string& line) {
    std::string error;
    const auto order = node::parseOrder(line, error);
    EXPECT_TRUE(order) << line << ": " << error;
    return order.value_or(Order{});
}

TEST(Order, ThereAreThree) {
    EXPECT_EQ(orderOf(R"({"order": "status"})").kind, Order::STATUS);
    EXPECT_EQ(orderOf(R"({"order": "stop"})").kind, Order::STOP);
    EXPECT_EQ(orderOf(R"({"order": "restart"})").kind, Order::RESTART);
    EXPECT_EQ(orderOf(node::formatOrder({Order::RESTART})).kind, Order::RESTART);
    const Order on = orderOf(R"({"order": "play_sound", "on": true})");
    EXPECT_EQ(on.kind, Order::PLAY_SOUND);
    EXPECT_TRUE(on.on);
    EXPECT_FALSE(orderOf(R"({"on":false,"order":"play_sound"})").on);
}

TEST(Order, OtherMembersAreNotLookedAt) {
    EXPECT_EQ(orderOf(R"({"order": "stop", "id": 7, "note": [1, {"x": null}]})").kind, Order::STOP);
}

TEST(Order, BlanksAndACarriageReturnDoNoHarm) {
    EXPECT_EQ(orderOf("  {\t\"order\" :\"status\" } \r").kind, Order::STATUS);
}

TEST(Order, WhatIsNoOrderIsToldWhy) {
    for (const std::string line : {"", "status", "7", "null", "[]", "\"stop\"", "{", "{\"order\":}",
                                   "{\"order\": \"stop\"} x", "\xFF\xFE", "{'order': 'stop'}"})
        EXPECT_THAT(errorOf(line), HasSubstr("JSON")) << line;
    for (const std::string line :
         {"{}", R"({"order": 7})", R"({"order": null})", R"({"Order": "stop"})"})
        EXPECT_THAT(errorOf(line), HasSubstr("\"order\"")) << line;
    EXPECT_THAT(errorOf(R"({"order": "reboot"})"), HasSubstr("play_sound"));
    for (const std::string line :
         {R"({"order": "play_sound"})", R"({"order": "play_sound", "on": 1})",
          R"({"order": "play_sound", "on": "true"})"})
        EXPECT_THAT(errorOf(line), HasSubstr("\"on\"")) << line;
}

TEST(Order, AThousandBracketsAreNoOrderAndNoEnd) {
    EXPECT_THAT(errorOf(std::string(100000, '[')), HasSubstr("JSON"));
    std::string nested = R"({"order": "stop", "x": )";
    nested += std::string(100000, '[') + std::string(100000, ']') + "}";
    std::string error;
    node::parseOrder(nested, error);  // an order or not, but no end of the node
}

TEST(Order, WhatIsFormattedIsParsedToTheSame) {
    for (const Order& order : {Order{Order::STATUS, false}, Order{Order::STOP, false},
                               Order{Order::PLAY_SOUND, true}, Order{Order::PLAY_SOUND, false}}) {
        const std::string line = node::formatOrder(order);
        EXPECT_EQ(line.find('\n'), std::string::npos);
        EXPECT_EQ(orderOf(line).kind, order.kind);
        EXPECT_EQ(orderOf(line).on, order.on);
    }
}

TEST(Order, AnswersAreOneLineWhateverTheErrorSays) {
    EXPECT_EQ(node::okReply(), R"({"ok":true})");
    EXPECT_EQ(node::statusReply(R"({"state":"streaming"})"),
              R"({"ok":true,"status":{"state":"streaming"}})");
    EXPECT_EQ(node::errorReply("a \"b\"\nc"), R"({"ok":false,"error":"a \"b\"\nc"})");
    EXPECT_THAT(node::errorReply("\xFF"), HasSubstr("\"ok\":false"));
}

}  // namespace
