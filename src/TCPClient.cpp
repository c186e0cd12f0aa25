// SPDX-License-Identifier: MIT
#include "TCPClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "common.h"
#include "log.h"

TCPClient::~TCPClient() {
    disconnect();
}

int TCPClient::initialize() {
    return 1;
}

int TCPClient::connect(const std::string& ip_addr, uint32_t port) {
    if (is_connect_ && disconnect() != 0)
        return -3;
    socket_fd_ = socket(AF_INET, SOCK_STREAM, 0);
    if (socket_fd_ == -1) {
        const int error = errno;
        LOG_AT(logWARNING) << "Socket open error. error : " << systemErrorText(error);
        return -2;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = inet_addr(ip_addr.c_str());
    const auto* const peer = reinterpret_cast<const sockaddr*>(&address);
    if (interruptible([&] { return ::connect(socket_fd_, peer, sizeof(address)); }) == -1) {
        const int error = errno;
        LOG_AT(logWARNING) << "Socket connect error. error : " << systemErrorText(error);
        // Kept: the socket stays open, and the next connect opens another: each failed attempt
        // costs one descriptor.
        return -2;
    }
    is_connect_ = true;
    return 0;
}

int TCPClient::disconnect() {
    if (!is_connect_)
        return 0;
    if (close(socket_fd_) == -1) {
        const int error = errno;
        LOG_AT(logWARNING) << "Socket close error. error : " << systemErrorText(error);
        return -3;
    }
    is_connect_ = false;
    return 0;
}

int TCPClient::send(const char* data, uint32_t size) {
    if (!is_connect_) {
        // Kept: the spelling.
        LOG_AT(logDEBUG) << "Socket is aleady closed.";
        return -2;
    }
    if (size == 0 || !data) {
        LOG_AT(logDEBUG) << "Invalid parameter.";
        return -1;
    }
    const ssize_t count = interruptible([&] { return write(socket_fd_, data, size); });
    return count == -1 ? -4 : static_cast<int>(count);
}

int TCPClient::receive(char* data, uint32_t size, uint32_t timeout) {
    if (!is_connect_)
        return -2;
    if (size == 0 || !data)
        return -1;
    const int ready = waitReadable(socket_fd_, timeout);
    if (ready == -1) {
        // Kept: speaks of a time-out although the wait failed, and is misspelt.
        LOG_AT(logDEBUG) << "TCP client receive timeout occured.";
        return -7;
    }
    if (ready == 0)
        return 0;
    const ssize_t count = interruptible([&] { return read(socket_fd_, data, size); });
    if (count == -1) {
        const int error = errno;
        LOG_AT(logDEBUG) << "Receive data error. error : " << systemErrorText(error);
        return -5;
    }
    return static_cast<int>(count);
}

bool TCPClient::isConnect() {
    return is_connect_;
}
