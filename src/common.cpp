// SPDX-License-Identifier: MIT
#include "common.h"

#include <sys/select.h>

#include <cerrno>
#include <cstring>

#include "Interrupt.h"

int waitReadable(int fd, uint32_t timeout_ms) {
    if (fd < 0 || fd >= FD_SETSIZE) {
        errno = fd < 0 ? EBADF : EINVAL;
        return -1;
    }
    fd_set readable{};
    FD_SET(fd, &readable);
    timeval timeout{};
    timeout.tv_sec = timeout_ms / 1000;
    timeout.tv_usec = static_cast<suseconds_t>(timeout_ms % 1000) * 1000;
    return interruptible([&] { return select(fd + 1, &readable, nullptr, nullptr, &timeout); });
}

std::string systemErrorText(int error_number) {
    return std::strerror(error_number);
}
