// SPDX-License-Identifier: MIT
#include "stdio_pipes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace {

void require(bool done, const char* what) {
    if (!done)
        throw std::system_error(errno, std::generic_category(), what);
}

// Puts from onto to, and keeps a copy of what was there.
ScopedDescriptor replace(int to, int from) {
    ScopedDescriptor saved(fcntl(to, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    require(saved.get() != -1 && dup3(from, to, 0) != -1, "redirection");
    return saved;
}

}  // namespace

// Our ends are closed in the engines: one that held our end of standard input would keep it open.
StdioPipes::StdioPipes() {
    fflush(stdout);
    int in[2];
    int out[2];
    require(pipe2(in, O_CLOEXEC) == 0, "pipe");
    const ScopedDescriptor their_input(in[0]);
    input_ = ScopedDescriptor(in[1]);
    require(pipe2(out, O_CLOEXEC) == 0, "pipe");
    const ScopedDescriptor their_output(out[1]);
    output_ = ScopedDescriptor(out[0]);
    require(fcntl(output_.get(), F_SETFL, O_NONBLOCK) == 0, "pipe");
    fcntl(output_.get(), F_SETPIPE_SZ, 1 << 20);  // where allowed: nobody reads during a write
    saved_input_ = replace(STDIN_FILENO, their_input.get());
    saved_output_ = replace(STDOUT_FILENO, their_output.get());
}

StdioPipes::~StdioPipes() {
    fflush(stdout);
    dup3(saved_input_.get(), STDIN_FILENO, 0);
    dup3(saved_output_.get(), STDOUT_FILENO, 0);
    const std::string rest = output();
    fwrite(rest.data(), 1, rest.size(), stdout);
}

void StdioPipes::say(std::string_view text) {
    require(write(input_.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()),
            "write to standard input");
}

std::string StdioPipes::output() {
    std::string bytes(65536, '\0');
    const ssize_t count = read(output_.get(), bytes.data(), bytes.size());
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}
