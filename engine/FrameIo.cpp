// SPDX-License-Identifier: MIT
#include "FrameIo.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace engine {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Called after a read or write that failed; returns if it is worth another try. The other side may
// have made a shared pipe end non-blocking: then we wait for it here.
void recover(int fd, short events, const char* what) {
    if (errno == EINTR)
        return;
    if (errno != EAGAIN)
        fail(what);
    pollfd entry{fd, events, 0};
    if (poll(&entry, 1, -1) < 0 && errno != EINTR)
        fail(what);
}

}  // namespace

ReadResult readFrame(int fd, AudioFrame& frame) {
    auto rest = std::as_writable_bytes(std::span(&frame, 1));
    while (!rest.empty()) {
        const ssize_t count = read(fd, rest.data(), rest.size());
        if (count == 0)
            return rest.size() == sizeof(AudioFrame) ? ReadResult::END : ReadResult::CUT;
        if (count > 0)
            rest = rest.subspan(static_cast<size_t>(count));
        else
            recover(fd, POLLIN, "standard input");
    }
    return ReadResult::FRAME;
}

void writeFrame(int fd, std::span<const std::byte> frame) {
    while (!frame.empty()) {
        const ssize_t count = write(fd, frame.data(), frame.size());
        if (count >= 0)
            frame = frame.subspan(static_cast<size_t>(count));
        else
            recover(fd, POLLOUT, "standard output");
    }
}

}  // namespace engine
