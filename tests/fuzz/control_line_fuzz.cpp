// SPDX-License-Identifier: MIT
// Any bytes as a line from a client of the control socket: an order, which written out again is the
// same one, or a reason, and never an end of the node.
#include <string>

#include "Order.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string line(data, data + size);
    std::string error;
    const auto order = node::parseOrder(line, error);
    REQUIRE(order.has_value() == error.empty());
    if (!order) {
        REQUIRE(node::errorReply(error).find('\n') == std::string::npos);
        REQUIRE(node::errorReply(line).find('\n') == std::string::npos);
        return 0;
    }
    const auto again = node::parseOrder(node::formatOrder(*order), error);
    REQUIRE(again && again->kind == order->kind && again->on == order->on);
    return 0;
}
