// SPDX-License-Identifier: MIT
#include "ProcessFigures.h"

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace {

namespace fs = std::filesystem;

// CPU time to the nanosecond; /proc/PID/stat would count in ticks of 10 ms.
double cpuSeconds(pid_t pid) {
    clockid_t clock;
    timespec time{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0)
        throw std::runtime_error("no CPU time of process " + std::to_string(pid));
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

long peakRss(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string key; status >> key;) {
        if (long kb = 0; key == "VmHWM:" && status >> kb)
            return kb;
    }
    throw std::runtime_error("no memory figure of process " + std::to_string(pid));
}

// Started by its only thread, or by its first.
std::vector<pid_t> childrenOf(pid_t pid) {
    const std::string number = std::to_string(pid);
    std::ifstream list("/proc/" + number + "/task/" + number + "/children");
    std::vector<pid_t> children;
    for (pid_t child; list >> child;)
        children.push_back(child);
    return children;
}

void add(ProcessFigures& sum, pid_t pid, const fs::path& except) {
    std::error_code gone;
    if (fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", gone) == except || gone)
        return;
    sum.cpu_s += cpuSeconds(pid);
    sum.peak_rss_kb += peakRss(pid);
    ++sum.processes;
    for (const pid_t child : childrenOf(pid))
        add(sum, child, except);
}

}  // namespace

ProcessFigures figuresOf(pid_t root, const std::string& except) {
    ProcessFigures sum;
    add(sum, root, fs::canonical(except));
    if (sum.processes == 0)
        throw std::runtime_error("process " + std::to_string(root) + " has ended");
    return sum;
}

long unreadBytes(uint16_t port) {
    std::ifstream table("/proc/net/tcp");
    constexpr unsigned ESTABLISHED = 1;
    std::string line;
    std::getline(table, line);  // headings
    while (std::getline(table, line)) {
        unsigned local_port = 0;
        unsigned state = 0;
        unsigned unread = 0;
        // number: local address:port remote address:port state sending:unread
        if (std::sscanf(line.c_str(), " %*d: %*x:%x %*x:%*x %x %*x:%x", &local_port, &state,
                        &unread) == 3 &&
            local_port == port && state == ESTABLISHED)
            return static_cast<long>(unread);
    }
    return -1;
}
