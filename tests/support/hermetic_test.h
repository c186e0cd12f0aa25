// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_HERMETIC_TEST_H
#define TOLVANEV_TESTS_HERMETIC_TEST_H

// What a test may leave behind. hermetic_test.cpp looks after each one; these are for tests that
// look closer.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <set>
#include <string>

inline std::set<int> openDescriptors() {
    std::set<int> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        open.insert(std::stoi(entry.path().filename()));
    // The walk's own descriptor is closed by now.
    std::erase_if(open, [](int fd) { return fcntl(fd, F_GETFD) == -1; });
    return open;
}

// Closes the descriptors that were opened since; returns how many they were. For the tests that
// pin a descriptor left open.
inline size_t closeOpenedSince(const std::set<int>& before) {
    size_t count = 0;
    for (const int fd : openDescriptors()) {
        if (!before.contains(fd)) {
            close(fd);
            ++count;
        }
    }
    return count;
}

// True when this process has children, ended but unreaped ones included.
inline bool hasChildren() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

// A child that has ended, not reaped by this look; si_pid is 0 when there is none.
inline siginfo_t endedChild() {
    siginfo_t info{};
    waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT);
    return info;
}

#endif
