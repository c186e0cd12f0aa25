// SPDX-License-Identifier: MIT
#include "WholeFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>
#include <uv.h>

#include <cerrno>

namespace node {

namespace {

constexpr mode_t MODE = 0644;

int writeAll(int fd, std::string_view content) {
    while (!content.empty()) {
        const ssize_t count = write(fd, content.data(), content.size());
        if (count < 0 && errno != EINTR)
            return errno;
        content.remove_prefix(count > 0 ? static_cast<size_t>(count) : 0);
    }
    return 0;
}

}  // namespace

std::string writeWhole(const std::string& temporary, const std::string& path,
                       std::string_view content, Durable durable) {
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, MODE);
    if (fd < 0)
        return uv_strerror(-errno);
    int error = writeAll(fd, content);
    if (error == 0 && durable == Durable::YES && fsync(fd) != 0)
        error = errno;
    if (close(fd) != 0 && error == 0)  // a file system over a network may tell only now
        error = errno;
    if (error == 0 && rename(temporary.c_str(), path.c_str()) != 0)
        error = errno;
    if (error == 0)
        return "";
    unlink(temporary.c_str());
    return uv_strerror(-error);
}

}  // namespace node
