// SPDX-License-Identifier: MIT
#include "loopback_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace {

constexpr int BOUND_MS = 10000;

ScopedDescriptor newSocket() {
    ScopedDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.get() == -1)
        throw std::system_error(errno, std::generic_category(), "socket");
    return socket;
}

sockaddr_in addressOf(const char* address, uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = inet_addr(address);
    return result;
}

bool bindTo(const ScopedDescriptor& socket, const char* host, uint16_t port) {
    const sockaddr_in address = addressOf(host, port);
    return bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

bool readable(const ScopedDescriptor& socket, int timeout_ms) {
    pollfd waited{socket.get(), POLLIN, 0};
    int ready = -1;
    do
        ready = poll(&waited, 1, timeout_ms);
    while (ready == -1 && errno == EINTR);
    return ready == 1;
}

}  // namespace

// Below the ports that the system hands out by itself: other programs connect from those, and
// perhaps to those, at any moment. Each process of a test run starts elsewhere.
uint16_t freePort() {
    constexpr int FIRST = 10000;
    constexpr int COUNT = 20000;
    static int next = static_cast<int>(getpid() * 389L % COUNT);
    for (int tries = 0; tries < COUNT; ++tries) {
        const auto port = static_cast<uint16_t>(FIRST + next++ % COUNT);
        if (bindTo(newSocket(), "0.0.0.0", port))
            return port;
    }
    throw std::system_error(EADDRINUSE, std::generic_category(), "freePort");
}

LoopbackPeer LoopbackPeer::dial(uint16_t port, const char* address) {
    ScopedDescriptor socket = newSocket();
    const sockaddr_in target = addressOf(address, port);
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&target), sizeof(target)) == -1)
        throw std::system_error(errno, std::generic_category(), "connect");
    return LoopbackPeer(std::move(socket));
}

void LoopbackPeer::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count == -1)
            throw std::system_error(errno, std::generic_category(), "send");
        bytes.remove_prefix(static_cast<size_t>(count));
    }
}

std::string LoopbackPeer::receive(size_t size) {
    std::string bytes(size, '\0');
    size_t have = 0;
    while (have < size && readable(socket_, BOUND_MS)) {
        const ssize_t count = recv(socket_.get(), bytes.data() + have, size - have, 0);
        if (count <= 0)
            break;
        have += static_cast<size_t>(count);
    }
    bytes.resize(have);
    return bytes;
}

std::string LoopbackPeer::arrived() {
    std::string bytes(65536, '\0');
    const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

bool LoopbackPeer::seesEnd() {
    char skipped[4096];
    while (readable(socket_, BOUND_MS)) {
        if (recv(socket_.get(), skipped, sizeof(skipped), MSG_DONTWAIT) <= 0)
            return true;
    }
    return false;
}

bool LoopbackPeer::hasEnded() {
    char byte = 0;
    return recv(socket_.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 0;
}

void LoopbackPeer::reset() {
    const linger at_once{1, 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    close();
}

LoopbackListener::LoopbackListener() : socket_(newSocket()), port_(freePort()) {
    if (!bindTo(socket_, "127.0.0.1", port_) || listen(socket_.get(), 8) == -1)
        throw std::system_error(errno, std::generic_category(), "listen");
}

LoopbackPeer LoopbackListener::accept() {
    if (!readable(socket_, BOUND_MS))
        return LoopbackPeer();
    return LoopbackPeer(ScopedDescriptor(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC)));
}
