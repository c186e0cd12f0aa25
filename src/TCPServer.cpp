// SPDX-License-Identifier: MIT
#include "TCPServer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Interrupt.h"
#include "SocketStatus.h"
#include "common.h"
#include "log.h"

namespace {

constexpr uint32_t ACCEPT_TIMEOUT_MS = 5000;
constexpr int BACKLOG = 1;  // there is only one voice server

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
    if (!is_connect_ && disconnect() != SOCKET_OK)
        return SOCKET_CLOSE_FAILED;
    if (const int status = listenOn(port); status != SOCKET_OK)
        return status;
    if (waitReadable(server_fd_, ACCEPT_TIMEOUT_MS) != 1) {
        // Kept: the spelling; a failed wait reads the same as a time-out.
        LOG_AT(logWARNING) << "Socket accept timeout occured.";
        return SOCKET_WAIT_FAILED;
    }
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    auto* const peer = reinterpret_cast<sockaddr*>(&address);
    socket_fd_ = interruptible([&] { return accept(server_fd_, peer, &size); });
    if (socket_fd_ == -1)
        return SOCKET_NOT_CONNECTED;  // Kept: a failed accept has no message.
    // Kept: the listening socket stays open; a second peer connects and is never served.
    is_connect_ = true;
    return SOCKET_OK;
}

int TCPServer::listenOn(uint32_t port) {
    server_fd_ = socket(AF_INET, SOCK_STREAM, 0);
    if (server_fd_ == -1)
        return logSocketFailure(SOCKET_NOT_CONNECTED, logWARNING, "Socket open failed. error : ");
    const int on = 1;
    setsockopt(server_fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(server_fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1)
        return logSocketFailure(SOCKET_NOT_CONNECTED, logWARNING, "Socket bind failed. error : ");
    if (listen(server_fd_, BACKLOG) == -1)
        return logSocketFailure(SOCKET_NOT_CONNECTED, logWARNING, "Socket listen failed. error : ");
    return SOCKET_OK;
}

int TCPServer::disconnect() {
    if (closeSocket(socket_fd_) != SOCKET_OK || closeSocket(server_fd_) != SOCKET_OK)
        return SOCKET_CLOSE_FAILED;
    is_connect_ = false;
    return SOCKET_OK;
}

int TCPServer::closeSocket(int& fd) {
    // Kept: strictly greater than zero; descriptor 0 is never closed.
    if (fd <= 0)
        return SOCKET_OK;
    if (close(fd) == -1)
        return logSocketFailure(SOCKET_CLOSE_FAILED, logWARNING, "Socket close failed. error : ");
    fd = -1;
    return SOCKET_OK;
}

int TCPServer::send(const char* data, uint32_t size) {
    if (!is_connect_)
        return SOCKET_NOT_CONNECTED;
    if (size == 0 || !data)
        return SOCKET_INVALID_ARGUMENT;
    const ssize_t count = interruptible([&] { return write(socket_fd_, data, size); });
    if (count == -1)
        return logSocketFailure(SOCKET_WRITE_FAILED, logWARNING, "Socket write failed. error : ");
    return static_cast<int>(count);
}

int TCPServer::receive(char* data, uint32_t size, uint32_t timeout) {
    if (!is_connect_)
        return SOCKET_NOT_CONNECTED;
    if (size == 0 || !data)
        return SOCKET_INVALID_ARGUMENT;
    const int ready = waitReadable(socket_fd_, timeout);
    if (ready == -1) {
        // Kept: speaks of a time-out although the wait failed, and is misspelt.
        LOG_AT(logDEBUG) << "TCP server receive timeout occured.";
        return SOCKET_WAIT_FAILED;
    }
    if (ready == 0)
        return SOCKET_OK;
    const ssize_t count = interruptible([&] { return read(socket_fd_, data, size); });
    if (count == -1)
        return logSocketFailure(SOCKET_READ_FAILED, logDEBUG, "Receive data failed. error : ");
    // Kept: 0 when the peer has closed, as when nothing came; the next send ends the process by
    // SIGPIPE.
    return static_cast<int>(count);
}

bool TCPServer::isConnect() {
    return is_connect_;
}
