// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_VOICESERVER_H
#define TOLVANEV_VOICESERVER_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "TCPServer.h"

// what() is "[VoiceServerError] " and the message.
class VoiceServerError : public std::runtime_error {
  public:
    explicit VoiceServerError(const std::string& message)
        : std::runtime_error("[VoiceServerError] " + message) {}
};

// The connection to the voice server, which connects to us. Owned by Application. Carries bytes
// both ways and does not look into them. Failures throw VoiceServerError with a fixed message; the
// system's cause is in the log. Waits as TCPServer does: connect at most five seconds.
class VoiceServer {
  public:
    VoiceServer();
    VoiceServer(const VoiceServer&) = delete;
    VoiceServer& operator=(const VoiceServer&) = delete;
    virtual ~VoiceServer() = default;  // the connector closes its sockets

    int initialize();  // does nothing; 1
    // Accepts the voice server on this port; 0. A connection that is open is closed first.
    int connect(uint16_t send_port);
    // Waits up to timeout ms, then reads once; returns the number of bytes, 0 when nothing came
    // and also when the voice server has closed.
    int read(char* data, uint32_t size, uint32_t timeout);
    // One write; returns how many bytes were taken, and does not retry the rest.
    int write(const char* data, uint32_t size);
    int disconnect();  // 0; harmless when not connected
    bool isConnect();

  private:
    bool is_connect_ = false;
    std::shared_ptr<TCPServer> data_connector_;
};

using VoiceServerPtr = std::shared_ptr<VoiceServer>;

#endif
