// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_LOOPBACK_PEER_H
#define TOLVANEV_TESTS_LOOPBACK_PEER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "scoped_descriptor.h"

// A port that nobody uses.
uint16_t freePort();

// The other end of a connection on the loopback network. Neither ends the program by SIGPIPE nor
// waits without bound, and moves bytes by calls that faults.h does not touch.
class LoopbackPeer {
  public:
    LoopbackPeer() = default;  // not connected
    explicit LoopbackPeer(ScopedDescriptor socket) : socket_(std::move(socket)) {}
    // Throws std::system_error when nobody listens.
    static LoopbackPeer dial(uint16_t port, const char* address = "127.0.0.1");

    bool isOpen() const { return socket_.get() != -1; }
    void send(std::string_view bytes);
    // Exactly so many bytes; fewer when no more came for ten seconds or the connection has ended.
    std::string receive(size_t size);
    // What has arrived, without waiting.
    std::string arrived();
    // True when the other side closes; bytes that came before that are skipped. False when nothing
    // at all comes for ten seconds.
    bool seesEnd();
    // True when the other side has closed by now.
    bool hasEnded();
    void close() { socket_.reset(); }
    // Ends the connection by a reset instead of in order.
    void reset();

  private:
    ScopedDescriptor socket_;
};

// Listens on a free port for the bridge to connect; what it accepts is a peer.
class LoopbackListener {
  public:
    LoopbackListener();
    uint16_t port() const { return port_; }
    // Waits at most ten seconds; then an unconnected peer.
    LoopbackPeer accept();

  private:
    ScopedDescriptor socket_;
    uint16_t port_;
};

#endif
