// SPDX-License-Identifier: MIT
// A line of the bridge's standard error, taken apart: "- 14:03:27.045 INFO: text", or a text of its
// main loop without time and level.
#ifndef TOLVANEV_NODE_BRIDGE_MESSAGE_H
#define TOLVANEV_NODE_BRIDGE_MESSAGE_H

#include <string>
#include <vector>

#include "Listener.h"

namespace node {

// The messages of a line, without their times: none for an empty line, two where the first was
// written without a line feed.
std::vector<Message> parseBridgeLine(const std::string& line);

// True for the text with which the bridge says that both peers are there.
bool saysConnected(const std::string& text);

}  // namespace node

#endif
