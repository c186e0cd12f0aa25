// SPDX-License-Identifier: MIT
#include "faults.h"

#include <gtest/gtest.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "wait_until.h"

// What the linker calls the calls of the C library.
extern "C" {
int __real_pipe(int fds[2]);
pid_t __real_fork();
int __real_dup2(int from, int to);
int __real_kill(pid_t pid, int signal);
pid_t __real_waitpid(pid_t pid, int* status, int options);
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* special, timeval* timeout);
ssize_t __real_read(int fd, void* data, size_t size);
ssize_t __real_write(int fd, const void* data, size_t size);
int __real_socket(int domain, int type, int protocol);
int __real_setsockopt(int fd, int level, int name, const void* value, socklen_t size);
int __real_bind(int fd, const sockaddr* address, socklen_t size);
int __real_listen(int fd, int backlog);
int __real_accept(int fd, sockaddr* address, socklen_t* size);
int __real_connect(int fd, const sockaddr* address, socklen_t size);
int __real_close(int fd);
unsigned __real_sleep(unsigned seconds);
int __real_gettimeofday(timeval* now, void* zone);
}

namespace faults {
namespace {

enum class Kind { FAIL, ANSWER, SHORTEN, AFTER };

struct Plan {
    Call call;
    Where where;
    Kind kind;
    long number;  // errno, result or bytes
    std::function<void()> step;
};

struct State {
    std::vector<Plan> plans;
    std::array<int, static_cast<size_t>(Call::COUNT)> calls{};
    long timeout = -1;
    int backlog = -1;
    unsigned pause = 0;
};

// Never destroyed: descriptors are still closed while the program's statics are torn down.
State& state() {
    static State* const state = new State;
    return *state;
}

// valgrind handles the signals of what it runs, so one that comes between fork and exec goes down
// with it, and the engine lives on. Waits, under tests/memcheck only, until the child is an engine
// or has ended.
void awaitEngineUnderMemcheck(pid_t child) {
    if (!std::getenv("TOLVANEV_MEMCHECK"))
        return;
    const std::string link = "/proc/" + std::to_string(child) + "/exe";
    waitUntil([&] {
        char program[256];
        const ssize_t size = readlink(link.c_str(), program, sizeof(program));
        return size < 0 || std::string_view(program, static_cast<size_t>(size)).find("valgrind") ==
                               std::string_view::npos;
    });
}

// Counts a call; takes the plan that it meets out of the list.
std::optional<Plan> meet(Call call, int fd) {
    State& all = state();
    ++all.calls[static_cast<size_t>(call)];
    auto met = all.plans.end();
    for (auto plan = all.plans.begin(); plan != all.plans.end(); ++plan) {
        if (plan->call != call || (plan->where.fd != ANY_FD && plan->where.fd != fd))
            continue;
        if (plan->where.skip > 0)
            --plan->where.skip;
        else if (met == all.plans.end())
            met = plan;
    }
    if (met == all.plans.end())
        return std::nullopt;
    Plan plan = std::move(*met);
    all.plans.erase(met);
    return plan;
}

// real(limit) makes the call, for at most limit bytes where it moves bytes.
template <typename Real>
auto through(Call call, int fd, size_t size, Real real) -> decltype(real(size)) {
    using Result = decltype(real(size));
    const std::optional<Plan> plan = meet(call, fd);
    if (!plan)
        return real(size);
    switch (plan->kind) {
        case Kind::FAIL:
            errno = static_cast<int>(plan->number);
            return static_cast<Result>(-1);
        case Kind::ANSWER:
            if (plan->step)
                plan->step();
            return static_cast<Result>(plan->number);
        case Kind::SHORTEN:
            return real(std::min(size, static_cast<size_t>(plan->number)));
        case Kind::AFTER:
            break;
    }
    const Result result = real(size);
    const int error = errno;
    plan->step();
    errno = error;
    return result;
}

template <typename Real>
auto through(Call call, int fd, Real real) -> decltype(real()) {
    return through(call, fd, 0, [&](size_t) { return real(); });
}

void plan(Call call, Where where, Kind kind, long number, std::function<void()> step = {}) {
    state().plans.push_back({call, where, kind, number, std::move(step)});
}

}  // namespace

void failNext(Call call, int error, Where where) {
    plan(call, where, Kind::FAIL, error);
}

void answerNext(Call call, long result, Where where, std::function<void()> step) {
    plan(call, where, Kind::ANSWER, result, std::move(step));
}

void shortenNext(Call call, size_t bytes, Where where) {
    plan(call, where, Kind::SHORTEN, static_cast<long>(bytes));
}

void afterNext(Call call, std::function<void()> step, Where where) {
    plan(call, where, Kind::AFTER, 0, std::move(step));
}

int callsOf(Call call) {
    return state().calls[static_cast<size_t>(call)];
}

long microsecondsAsked() {
    return state().timeout;
}

int backlogAsked() {
    return state().backlog;
}

unsigned secondsAsked() {
    return state().pause;
}

void clear() {
    state() = State();
}

namespace {

// No fault outlives its test.
class Forgetting : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override { clear(); }
};

[[maybe_unused]] const bool listening = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Forgetting);
    return true;
}();

}  // namespace
}  // namespace faults

using faults::ANY_FD;
using faults::Call;
using faults::through;

extern "C" {

int __wrap_pipe(int fds[2]) {
    return through(Call::PIPE, ANY_FD, [&] { return __real_pipe(fds); });
}

pid_t __wrap_fork() {
    return through(Call::FORK, ANY_FD, [] { return __real_fork(); });
}

int __wrap_dup2(int from, int to) {
    return through(Call::DUP2, to, [&] { return __real_dup2(from, to); });
}

int __wrap_kill(pid_t pid, int signal) {
    faults::awaitEngineUnderMemcheck(pid);
    return through(Call::KILL, ANY_FD, [&] { return __real_kill(pid, signal); });
}

pid_t __wrap_waitpid(pid_t pid, int* status, int options) {
    return through(Call::WAITPID, ANY_FD, [&] { return __real_waitpid(pid, status, options); });
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* special,
                  timeval* timeout) {
    if (timeout)
        faults::state().timeout = timeout->tv_sec * 1'000'000L + timeout->tv_usec;
    return through(Call::SELECT, count - 1,
                   [&] { return __real_select(count, readable, writable, special, timeout); });
}

ssize_t __wrap_read(int fd, void* data, size_t size) {
    return through(Call::READ, fd, size,
                   [&](size_t limit) { return __real_read(fd, data, limit); });
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
    return through(Call::WRITE, fd, size,
                   [&](size_t limit) { return __real_write(fd, data, limit); });
}

int __wrap_socket(int domain, int type, int protocol) {
    return through(Call::SOCKET, ANY_FD, [&] { return __real_socket(domain, type, protocol); });
}

int __wrap_setsockopt(int fd, int level, int name, const void* value, socklen_t size) {
    return through(Call::SETSOCKOPT, fd,
                   [&] { return __real_setsockopt(fd, level, name, value, size); });
}

int __wrap_bind(int fd, const sockaddr* address, socklen_t size) {
    return through(Call::BIND, fd, [&] { return __real_bind(fd, address, size); });
}

int __wrap_listen(int fd, int backlog) {
    faults::state().backlog = backlog;
    return through(Call::LISTEN, fd, [&] { return __real_listen(fd, backlog); });
}

int __wrap_accept(int fd, sockaddr* address, socklen_t* size) {
    return through(Call::ACCEPT, fd, [&] { return __real_accept(fd, address, size); });
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t size) {
    return through(Call::CONNECT, fd, [&] { return __real_connect(fd, address, size); });
}

int __wrap_close(int fd) {
    return through(Call::CLOSE, fd, [&] { return __real_close(fd); });
}

unsigned __wrap_sleep(unsigned seconds) {
    faults::state().pause = seconds;
    return through(Call::SLEEP, ANY_FD, [&] { return __real_sleep(seconds); });
}

int __wrap_gettimeofday(timeval* now, void* zone) {
    return through(Call::GETTIMEOFDAY, ANY_FD, [&] { return __real_gettimeofday(now, zone); });
}

}  // extern "C"
