// SPDX-License-Identifier: MIT
#include "Sink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "FileSink.h"
#include "StreamSink.h"

namespace node {

namespace {

constexpr mode_t FILE_MODE = 0644;

bool takesBytesAsTheyAreRead(int fd) {
    struct stat about {};
    return isatty(fd) ||
           (fstat(fd, &about) == 0 && (S_ISFIFO(about.st_mode) || S_ISSOCK(about.st_mode)));
}

// A description of its own, that does not block: the one behind fd may be other programs' too, and
// those do not expect EAGAIN. Where there is no way to one (a socket, a terminal of another user)
// it is a copy, whose sharers get EAGAIN while this node runs.
int ownDescription(int fd) {
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    const int own = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    return own >= 0 ? own : fcntl(fd, F_DUPFD_CLOEXEC, 0);
}

}  // namespace

std::unique_ptr<Sink> Sink::open(Loop& loop, const std::string& path, size_t limit,
                                 milliseconds gather) {
    if (path == "-")
        return onDescriptor(loop, STDOUT_FILENO, limit);
    struct stat about {};
    if (stat(path.c_str(), &about) == 0 && S_ISFIFO(about.st_mode)) {
        if (access(path.c_str(), W_OK) != 0)
            check(-errno, path);
        return std::make_unique<StreamSink>(loop, path, limit);
    }
    const int fd = ::open(
        path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, FILE_MODE);
    if (fd < 0)
        check(-errno, path);
    if (takesBytesAsTheyAreRead(fd))
        return std::make_unique<StreamSink>(loop, fd, limit);
    return std::make_unique<FileSink>(loop, fd, path, limit, gather);
}

// A regular file is written to where its description stands: what others write there before and
// behind, as "> FILE" of a whole script does, stays.
std::unique_ptr<Sink> Sink::onDescriptor(Loop& loop, int fd, size_t limit) {
    const bool stream = takesBytesAsTheyAreRead(fd);
    const int own = stream ? ownDescription(fd) : fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (own < 0)
        check(-errno, "descriptor " + std::to_string(fd));
    if (stream)
        return std::make_unique<StreamSink>(loop, own, limit);
    return std::make_unique<FileSink>(loop, own, "", limit, milliseconds(0));
}

}  // namespace node
