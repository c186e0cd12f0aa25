// SPDX-License-Identifier: MIT
#include "Ask.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>

#include "Order.h"

namespace node {

using nlohmann::ordered_json;

namespace {

constexpr timeval PATIENCE{5, 0};
constexpr timeval AGAIN{15, 0};  // a sound that plays on is said again, ahead of the limit

// A connection to the node; closed at the end of its scope.
class Connection {
  public:
    explicit Connection(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path) {
            errno = ENAMETOOLONG;
            return;
        }
        std::copy(path.begin(), path.end(), address.sun_path);
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
        setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &PATIENCE, sizeof PATIENCE);
        connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { close(fd_); }

    bool connected() const { return connected_; }

    // The node's answer; null when there is none.
    ordered_json order(const Order& order) {
        const std::string line = formatOrder(order) + "\n";
        if (send(fd_, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size()))
            return nullptr;
        std::string answer;
        char byte = 0;
        while (recv(fd_, &byte, 1, 0) == 1 && byte != '\n')
            answer += byte;
        return ordered_json::parse(answer, nullptr, false);
    }

    // True when so much time has gone by; false when the node has closed the connection, or a
    // signal has come.
    bool wait(timeval time) const {
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
        char byte = 0;
        const bool in_vain = recv(fd_, &byte, 1, 0) < 0 && errno == EAGAIN;
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
        return in_vain;
    }

  private:
    int fd_;
    bool connected_ = false;
};

bool accepted(const ordered_json& answer) {
    return answer.is_object() && answer.value("ok", false);
}

int refused(const ordered_json& answer) {
    if (answer.is_object() && answer.contains("error"))
        std::cerr << "tolvanev-node: " << answer["error"].get<std::string>() << "\n";
    else
        std::cerr << "tolvanev-node: no answer\n";
    return 1;
}

void print(const ordered_json& value, const std::string& indent) {
    for (const auto& [name, field] : value.items()) {
        if (field.is_structured()) {
            std::cout << indent << (value.is_array() ? "-" : name + ":") << "\n";
            print(field, indent + "  ");
        } else {
            const std::string text = field.is_string() ? field.get<std::string>() : field.dump();
            std::cout << indent << name << ": " << text << "\n";
        }
    }
}

int playUntilEnded(Connection& node) {
    // A signal ends the wait; then the node hears that the sound has ended.
    struct sigaction heed {};
    heed.sa_handler = [](int) {};
    sigaction(SIGINT, &heed, nullptr);
    sigaction(SIGTERM, &heed, nullptr);
    std::cout << "A sound plays until this is ended (Ctrl-C)." << std::endl;
    while (node.wait(AGAIN) && accepted(node.order({Order::PLAY_SOUND, true}))) {
    }
    const ordered_json answer = node.order({Order::PLAY_SOUND, false});
    return accepted(answer) ? 0 : refused(answer);
}

}  // namespace

int ask(const std::string& path, const std::vector<std::string>& words) {
    Order order;
    if (words == std::vector<std::string>{"play_sound"})
        order = {Order::PLAY_SOUND, true};
    else if (words == std::vector<std::string>{"restart"})
        order = {Order::RESTART};
    else if (words == std::vector<std::string>{"stop"})
        order = {Order::STOP};
    else if (words != std::vector<std::string>{"status"}) {
        std::cerr << "tolvanev-node: --ask PATH takes one of status, play_sound, restart, stop\n";
        return 2;
    }
    Connection node(path);
    if (!node.connected()) {
        std::cerr << "tolvanev-node: " << path << ": " << std::strerror(errno) << "\n";
        return 1;
    }
    const ordered_json answer = node.order(order);
    if (!accepted(answer))
        return refused(answer);
    if (order.kind == Order::STATUS)
        print(answer["status"], "");
    if (order.kind == Order::PLAY_SOUND)
        return playUntilEnded(node);
    return 0;
}

}  // namespace node
