// SPDX-License-Identifier: MIT
// What a client of the control socket says: one JSON object a line.
//
//     {"order": "status"}
//     {"order": "play_sound", "on": true}
//     {"order": "restart"}
//     {"order": "stop"}
#ifndef TOLVANEV_NODE_ORDER_H
#define TOLVANEV_NODE_ORDER_H

#include <optional>
#include <string>
#include <string_view>

namespace node {

struct Order {
    enum Kind { STATUS, PLAY_SOUND, RESTART, STOP };
    Kind kind = STATUS;
    bool on = false;  // of PLAY_SOUND
};

// Nothing, with the reason in error, when the line is no order. Members that are not known are
// not looked at.
std::optional<Order> parseOrder(std::string_view line, std::string& error);

std::string formatOrder(const Order& order);  // a line, without line feed

// The answers: {"ok": true, ...} or {"ok": false, "error": "..."}.
std::string okReply();
std::string statusReply(const std::string& status_json);
std::string errorReply(const std::string& error);

}  // namespace node

#endif
