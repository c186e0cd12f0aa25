// SPDX-License-Identifier: MIT
#include "Order.h"

#include <nlohmann/json.hpp>

namespace node {

using nlohmann::ordered_json;

namespace {

// Deeper than any order; the parser of a line that is nothing but brackets needs no stack for it.
constexpr int DEEPEST = 4;

ordered_json parsed(std::string_view line) {
    const auto shallow = [](int depth, ordered_json::parse_event_t, ordered_json&) {
        return depth <= DEEPEST;
    };
    return ordered_json::parse(line, shallow, false);
}

std::string text(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace

std::optional<Order> parseOrder(std::string_view line, std::string& error) {
    const ordered_json value = parsed(line);
    if (!value.is_object()) {
        error = "not a JSON object";
        return std::nullopt;
    }
    const auto order = value.find("order");
    if (order == value.end() || !order->is_string()) {
        error = R"(no "order")";
        return std::nullopt;
    }
    if (*order == "status")
        return Order{Order::STATUS};
    if (*order == "restart")
        return Order{Order::RESTART};
    if (*order == "stop")
        return Order{Order::STOP};
    if (*order != "play_sound") {
        error = "no such order; there are status, play_sound, restart and stop";
        return std::nullopt;
    }
    const auto on = value.find("on");
    if (on == value.end() || !on->is_boolean()) {
        error = R"(play_sound needs "on": true or false)";
        return std::nullopt;
    }
    return Order{Order::PLAY_SOUND, on->get<bool>()};
}

std::string formatOrder(const Order& order) {
    switch (order.kind) {
        case Order::PLAY_SOUND:
            return text({{"order", "play_sound"}, {"on", order.on}});
        case Order::RESTART:
            return text({{"order", "restart"}});
        case Order::STOP:
            return text({{"order", "stop"}});
        default:
            return text({{"order", "status"}});
    }
}

std::string okReply() {
    return R"({"ok":true})";
}

std::string statusReply(const std::string& status_json) {
    return R"({"ok":true,"status":)" + status_json + "}";
}

std::string errorReply(const std::string& error) {
    return text({{"ok", false}, {"error", error}});
}

}  // namespace node
