// SPDX-License-Identifier: MIT
// The other end of the control socket, for people and scripts: tolvanev-node --ask PATH WORD...
#ifndef TOLVANEV_NODE_ASK_H
#define TOLVANEV_NODE_ASK_H

#include <string>
#include <vector>

namespace node {

// status: prints it; play_sound: says that a sound plays until it is ended (Ctrl-C, SIGTERM) or the
// node is; restart: ends the bridge, and starts the next; stop. Waits for the node's answers, 5 s
// each. Returns the exit status: 0 done, 1 no answer or refused, 2 not understood.
int ask(const std::string& path, const std::vector<std::string>& words);

}  // namespace node

#endif
