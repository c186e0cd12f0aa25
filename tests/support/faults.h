// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_FAULTS_H
#define TOLVANEV_TESTS_FAULTS_H

#include <cstddef>
#include <functional>

// Faults on demand: the linker leads these system calls of the test program through faults.cpp.
// Without a plan every call is made as it stands. A plan meets one call and is then used up; plans
// of one kind of call do not know of each other. Calls made inside the C library do not count.
//
//     faults::failNext(faults::Call::SELECT, EBADF);         the next select fails
//     faults::answerNext(faults::Call::SELECT, 0);           ... reports a time-out at once
//     faults::shortenNext(faults::Call::WRITE, 10);          ... takes 10 bytes only
//     faults::afterNext(faults::Call::LISTEN, dial);         ... succeeds, then dial() runs
//     faults::failNext(faults::Call::READ, EIO, {.fd = 0});  the next read of descriptor 0 fails
namespace faults {

enum class Call {
    PIPE,
    FORK,
    DUP2,
    KILL,
    WAITPID,
    SELECT,
    READ,
    WRITE,
    SOCKET,
    SETSOCKOPT,
    BIND,
    LISTEN,
    ACCEPT,
    CONNECT,
    CLOSE,
    SLEEP,
    GETTIMEOFDAY,
    COUNT
};

constexpr int ANY_FD = -1;

struct Where {
    int skip = 0;     // calls that are let through first
    int fd = ANY_FD;  // only calls on this descriptor; a select is on the highest of its set
};

// The call is not made; it returns -1 with errno set.
void failNext(Call call, int error, Where where = {});
// The call is not made; step runs in its place, and it returns result.
void answerNext(Call call, long result, Where where = {}, std::function<void()> step = {});
// READ and WRITE: the call is made for at most this many bytes.
void shortenNext(Call call, size_t bytes, Where where = {});
// The call is made; then step runs, which may plan again or throw. errno stays the call's.
void afterNext(Call call, std::function<void()> step, Where where = {});

// Calls since the last clear, failed and answered ones included.
int callsOf(Call call);
// The time-out that the last select was given; -1 before the first.
long microsecondsAsked();
// The backlog that the last listen was given; -1 before the first.
int backlogAsked();
// The pause that the last sleep was given; 0 before the first.
unsigned secondsAsked();

// Forgets plans and counts.
void clear();

}  // namespace faults

#endif
