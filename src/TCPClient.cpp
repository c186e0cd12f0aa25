// SPDX-License-Identifier: MIT
#include "TCPClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Interrupt.h"
#include "SocketStatus.h"
#include "common.h"
#include "log.h"

TCPClient::~TCPClient() {
    disconnect();
}

int TCPClient::initialize() {
    return 1;
}

int TCPClient::connect(const std::string& ip_addr, uint32_t port) {
    if (is_connect_ && disconnect() != SOCKET_OK)
        return SOCKET_CLOSE_FAILED;
    socket_fd_ = socket(AF_INET, SOCK_STREAM, 0);
    if (socket_fd_ == -1)
        return logSocketFailure(SOCKET_NOT_CONNECTED, logWARNING, "Socket open error. error : ");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = inet_addr(ip_addr.c_str());
    const auto* const peer = reinterpret_cast<const sockaddr*>(&address);
    // Kept: the socket of a failed attempt stays open, and the next connect opens another: each one
    // costs a descriptor.
    if (interruptible([&] { return ::connect(socket_fd_, peer, sizeof(address)); }) == -1)
        return logSocketFailure(SOCKET_NOT_CONNECTED, logWARNING, "Socket connect error. error : ");
    is_connect_ = true;
    return SOCKET_OK;
}

int TCPClient::disconnect() {
    if (!is_connect_)
        return SOCKET_OK;
    if (close(socket_fd_) == -1)
        return logSocketFailure(SOCKET_CLOSE_FAILED, logWARNING, "Socket close error. error : ");
    is_connect_ = false;
    return SOCKET_OK;
}

int TCPClient::send(const char* data, uint32_t size) {
    if (!is_connect_) {
        // Kept: the spelling.
        LOG_AT(logDEBUG) << "Socket is aleady closed.";
        return SOCKET_NOT_CONNECTED;
    }
    if (size == 0 || !data) {
        LOG_AT(logDEBUG) << "Invalid parameter.";
        return SOCKET_INVALID_ARGUMENT;
    }
    const ssize_t count = interruptible([&] { return write(socket_fd_, data, size); });
    return count == -1 ? SOCKET_WRITE_FAILED : static_cast<int>(count);
}

int TCPClient::receive(char* data, uint32_t size, uint32_t timeout) {
    if (!is_connect_)
        return SOCKET_NOT_CONNECTED;
    if (size == 0 || !data)
        return SOCKET_INVALID_ARGUMENT;
    const int ready = waitReadable(socket_fd_, timeout);
    if (ready == -1) {
        // Kept: speaks of a time-out although the wait failed, and is misspelt.
        LOG_AT(logDEBUG) << "TCP client receive timeout occured.";
        return SOCKET_WAIT_FAILED;
    }
    if (ready == 0)
        return SOCKET_OK;
    const ssize_t count = interruptible([&] { return read(socket_fd_, data, size); });
    if (count == -1)
        return logSocketFailure(SOCKET_READ_FAILED, logDEBUG, "Receive data error. error : ");
    return static_cast<int>(count);
}

bool TCPClient::isConnect() {
    return is_connect_;
}
