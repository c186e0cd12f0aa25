// SPDX-License-Identifier: MIT
// What the node knows of itself at a moment: for --metrics, the status order and diagnostics.
#ifndef TOLVANEV_NODE_STATUS_H
#define TOLVANEV_NODE_STATUS_H

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Listener.h"

namespace node {

struct ProcessVitals {
    std::string name;  // "bridge", "engine"; the node itself is "node"
    pid_t pid = 0;
    uint64_t memory = 0;     // bytes resident
    double cpu_seconds = 0;  // user and system, since it was started
    bool io_known = false;   // whether the system tells the two that follow
    uint64_t read = 0;       // bytes by read(2), which leaves out what sockets receive otherwise
    uint64_t written = 0;    // bytes by write(2)
    uint64_t switches = 0;   // voluntary context switches
};

// Totals count since the start of the node, over all runs of the bridge.
struct Status {
    State state = State::STARTING;
    std::string reason;        // of the last end of a bridge; empty = there was none
    uint64_t run = 0;          // number of the present or last run
    uint64_t restarts = 0;     // starts behind the first
    double run_seconds = 0;    // since the present run began; 0 = none
    uint64_t data_frames = 0;  // by type
    uint64_t start_frames = 0;
    uint64_t end_frames = 0;
    uint64_t tof_frames = 0;
    uint64_t eof_frames = 0;
    double rate = 0;                  // frames a second, over the last one
    std::optional<double> frame_age;  // seconds since the last frame of this run
    uint64_t gaps = 0;                // times without a frame for more than half a second
    uint64_t resyncs = 0;             // times that bytes were no frame
    uint64_t resync_bytes = 0;        // dropped by those
    uint64_t utterances = 0;
    bool speech = false;                      // an utterance is open
    bool play_sound = false;                  // what the bridge was told last
    std::map<std::string, uint64_t> dropped;  // records, by output
    std::vector<ProcessVitals> processes;     // as of the last look, at most a second ago
};

// One JSON object on one line, without line feed; the fields are a table in docs/node.md.
std::string jsonOf(const Status& status);

}  // namespace node

#endif
