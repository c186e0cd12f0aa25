// SPDX-License-Identifier: MIT
// The control socket: a Unix socket of mode 0600, any number of clients, orders a line each
// (Order.h), a line back for each. A client that floods waits its turn: some orders are answered at
// a time, none while it leaves answers unread. A line of more than 4 kB ends its connection.
//
// Owned by main, uses the node. The constructor throws a NodeError; a socket that is left of a
// killed node is replaced, that of a living one is not. Nothing here waits.
#ifndef TOLVANEV_NODE_CONTROL_H
#define TOLVANEV_NODE_CONTROL_H

#include <functional>
#include <list>
#include <memory>
#include <string>

#include "Node.h"

namespace node {

class Control {
  public:
    static constexpr size_t LONGEST_LINE = 4096;  // bytes
    static constexpr size_t MOST_CLIENTS = 256;   // a newcomer beyond is closed

    // on_stop is called for a stop order.
    Control(Loop& loop, const Log& log, Node& node, const std::string& path,
            std::function<void()> on_stop);
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;
    ~Control();

  private:
    class Client;
    void accept();
    void close(Client* client);
    std::string answer(std::string_view line, PlaySound::Holder holder);

    Loop& loop_;
    const Log& log_;
    Node& node_;
    std::string path_;
    std::function<void()> on_stop_;
    Handle<uv_pipe_t> server_;
    std::list<std::unique_ptr<Client>> clients_;
    PlaySound::Holder next_holder_ = 1;
};

}  // namespace node

#endif
