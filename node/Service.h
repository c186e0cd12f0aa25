// SPDX-License-Identifier: MIT
// What systemd is told when it has started the node (NOTIFY_SOCKET, WATCHDOG_USEC); without it
// nothing happens here. libsystemd, which every Debian has, knows the protocol.
#ifndef TOLVANEV_NODE_SERVICE_H
#define TOLVANEV_NODE_SERVICE_H

#include <string>

#include "Loop.h"

namespace node {

class Service {
  public:
    explicit Service(Loop& loop);

    void ready();                          // the node runs; the bridge has been started
    void status(const std::string& text);  // one line for `systemctl status`
    void stopping();

  private:
    Timer watchdog_;  // says twice in each period that the loop turns
};

}  // namespace node

#endif
