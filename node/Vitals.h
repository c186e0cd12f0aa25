// SPDX-License-Identifier: MIT
// What the system tells of a process in /proc: memory, processor time, bytes read and written.
// Reads a few small files; throws nothing: what cannot be read is 0 or left out.
#ifndef TOLVANEV_NODE_VITALS_H
#define TOLVANEV_NODE_VITALS_H

#include <optional>
#include <vector>

#include "Status.h"

namespace node {

// Nothing when there is no such process, or only what is left of it.
std::optional<ProcessVitals> vitalsOf(pid_t pid, const std::string& name);

std::vector<pid_t> childrenOf(pid_t pid);

}  // namespace node

#endif
