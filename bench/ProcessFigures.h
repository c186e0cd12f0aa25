// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_BENCH_PROCESSFIGURES_H
#define TOLVANEV_BENCH_PROCESSFIGURES_H

#include <sys/types.h>

#include <cstdint>
#include <string>

// What the system knows about a process and those it started, without those that run `except`
// (the engines): so a relay that is one process and one that is several are asked alike. Throws
// std::runtime_error when a process cannot be asked.
struct ProcessFigures {
    double cpu_s = 0;      // user and system time
    long peak_rss_kb = 0;  // sums over the processes
    int processes = 0;
};
ProcessFigures figuresOf(pid_t root, const std::string& except);

// Bytes that have arrived at the accepted connection of this local TCP port (IPv4) and were not
// read yet; -1 when there is no such connection.
long unreadBytes(uint16_t port);

#endif
