// SPDX-License-Identifier: MIT
// The command line of tolvanev-node.
#ifndef TOLVANEV_NODE_OPTIONS_H
#define TOLVANEV_NODE_OPTIONS_H

#include <string>
#include <vector>

#include "Node.h"

namespace node {

// Empty paths and commands: that output is not wanted.
struct Options {
    NodeOptions node;
    Level log_level = Level::INFO;   // messages below it are not written
    std::string wav;                 // folder
    size_t wav_files = 1000;         // kept; 0 = any number
    size_t wav_megabytes = 0;        // kept; 0 = any
    std::string exec;                // command
    size_t exec_jobs = 1;            // at once
    size_t exec_queue = 4;           // utterances that wait
    double exec_timeout = 30;        // seconds
    std::string frames;              // file, FIFO or "-"
    std::string events;              // file, FIFO or "-"
    std::string metrics;             // file
    std::string control;             // socket
    std::string ask;                 // socket of a running node
    std::vector<std::string> words;  // behind "--": the bridge's command line, or what is asked
};

// Fills options. Returns the status to exit with at once (0 after --help and --version, 2 after an
// error, both said), or -1 to go on.
int parseOptions(int argc, const char* const* argv, Options& options);

}  // namespace node

#endif
