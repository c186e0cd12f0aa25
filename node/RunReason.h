// SPDX-License-Identifier: MIT
// Why a run of the bridge ended, in one line for people. The bridge's exit status is 0 whatever
// happened, so this goes by its last messages, by the signal that killed it and by how its engines
// ended. README.md has the table of all ends.
#ifndef TOLVANEV_NODE_RUN_REASON_H
#define TOLVANEV_NODE_RUN_REASON_H

#include <deque>
#include <string>
#include <vector>

#include "Child.h"

namespace node {

// What is known of a run when it is over.
struct RunEvidence {
    Ending ending;                // of the bridge
    std::vector<Ending> engines;  // those that outlived it, or had ended when it did
    // The last ones, without time and level; newest last. The help text has ten lines, and those
    // ahead of it tell why it was printed.
    std::deque<std::string> messages;
    bool had_frames = false;
    bool just_told = false;  // of a sound, right ahead of its end; it tells its sound client then
};

std::string reasonOf(const RunEvidence& evidence);

}  // namespace node

#endif
