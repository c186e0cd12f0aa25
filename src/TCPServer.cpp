// SPDX-License-Identifier: MIT
#include "TCPServer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "common.h"
#include "log.h"

namespace {

constexpr uint32_t ACCEPT_TIMEOUT_MS = 5000;
constexpr int BACKLOG = 1;  // there is only one voice server

// Logs why a step of setting up failed; the status code of such a failure.
int openFailure(const char* text, int error_number) {
    LOG_AT(logWARNING) << text << systemErrorText(error_number);
    return -2;
}

}  // namespace

TCPServer::~TCPServer() {
    disconnect();
}

int TCPServer::initialize() {
    return 1;
}

int TCPServer::connect(uint32_t port) {
    // Kept: it is the unconnected server that cleans up first, because a failed attempt leaves its
    // listening socket open. A connected one closes nothing.
    if (!is_connect_ && disconnect() != 0)
        return -3;
    if (const int status = listenOn(port); status != 0)
        return status;
    if (waitReadable(server_fd_, ACCEPT_TIMEOUT_MS) != 1) {
        // Kept: the spelling; a failed wait reads the same as a time-out.
        LOG_AT(logWARNING) << "Socket accept timeout occured.";
        return -7;
    }
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    auto* const peer = reinterpret_cast<sockaddr*>(&address);
    socket_fd_ = interruptible([&] { return accept(server_fd_, peer, &size); });
    if (socket_fd_ == -1)
        return -2;  // Kept: a failed accept has no message.
    // Kept: the listening socket stays open; a second peer connects and is never served.
    is_connect_ = true;
    return 0;
}

int TCPServer::listenOn(uint32_t port) {
    server_fd_ = socket(AF_INET, SOCK_STREAM, 0);
    if (server_fd_ == -1)
        return openFailure("Socket open failed. error : ", errno);
    const int on = 1;
    setsockopt(server_fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(server_fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1)
        return openFailure("Socket bind failed. error : ", errno);
    if (listen(server_fd_, BACKLOG) == -1)
        return openFailure("Socket listen failed. error : ", errno);
    return 0;
}

int TCPServer::disconnect() {
    if (closeSocket(socket_fd_) != 0 || closeSocket(server_fd_) != 0)
        return -3;
    is_connect_ = false;
    return 0;
}

int TCPServer::closeSocket(int& fd) {
    // Kept: strictly greater than zero; descriptor 0 is never closed.
    if (fd <= 0)
        return 0;
    if (close(fd) == -1) {
        const int error = errno;
        LOG_AT(logWARNING) << "Socket close failed. error : " << systemErrorText(error);
        return -3;
    }
    fd = -1;
    return 0;
}

int TCPServer::send(const char* data, uint32_t size) {
    if (!is_connect_)
        return -2;
    if (size == 0 || !data)
        return -1;
    const ssize_t count = interruptible([&] { return write(socket_fd_, data, size); });
    if (count == -1) {
        const int error = errno;
        LOG_AT(logWARNING) << "Socket write failed. error : " << systemErrorText(error);
        return -4;
    }
    return static_cast<int>(count);
}

int TCPServer::receive(char* data, uint32_t size, uint32_t timeout) {
    if (!is_connect_)
        return -2;
    if (size == 0 || !data)
        return -1;
    const int ready = waitReadable(socket_fd_, timeout);
    if (ready == -1) {
        // Kept: speaks of a time-out although the wait failed, and is misspelt.
        LOG_AT(logDEBUG) << "TCP server receive timeout occured.";
        return -7;
    }
    if (ready == 0)
        return 0;
    const ssize_t count = interruptible([&] { return read(socket_fd_, data, size); });
    if (count == -1) {
        const int error = errno;
        LOG_AT(logDEBUG) << "Receive data failed. error : " << systemErrorText(error);
        return -5;
    }
    // Kept: 0 when the peer has closed, as when nothing came; the next send ends the process by
    // SIGPIPE.
    return static_cast<int>(count);
}

bool TCPServer::isConnect() {
    return is_connect_;
}
