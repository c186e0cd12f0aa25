// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_SOUNDCLIENT_H
#define TOLVANEV_SOUNDCLIENT_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "SoundClientProcessor.h"
#include "TCPClient.h"

// what() is "[SoundClientError] " and the message.
class SoundClientError : public std::runtime_error {
  public:
    explicit SoundClientError(const std::string& message)
        : std::runtime_error("[SoundClientError] " + message) {}
};

// The connection to the sound client, to which we connect. Owned by Application. Feeds what comes
// to its parser, tells the end-point detection (EPD) state, and asks the sound client to switch
// EPD off while the robot plays a sound. Failures throw SoundClientError; the system's cause is in
// the log. process never waits; connect and write wait as TCPClient does.
//
// A sound client that closes in an orderly way is not noticed: process then reads nothing.
class SoundClient {
  public:
    SoundClient();
    SoundClient(const SoundClient&) = delete;
    SoundClient& operator=(const SoundClient&) = delete;
    virtual ~SoundClient() = default;  // the client closes its socket

    int initialize();                                        // resets the parser; 1
    int connect(const std::string& ip_addr, uint16_t port);  // 0
    // One poll: reads up to 1024 bytes and has them parsed. Every failure is "Unknown Exception.".
    void process();
    bool getEpdState();
    // state: the robot is playing a sound. Writes "epdoff\n\n" or "epdon\n\n" when it has changed.
    void setPlaySoundState(bool state);
    // Resets the parser, connected or not, so the EPD state is on again; then closes. 0.
    int disconnect();
    bool isConnect();

    // Returns the number of bytes read within timeout ms; 0 when nothing came.
    int read(char* data, uint32_t size, uint32_t timeout);
    // One write; returns how many bytes were taken.
    int write(const char* data, uint32_t size);

  private:
    bool is_connect_ = false;
    std::shared_ptr<TCPClient> client_;
    std::shared_ptr<SoundClientProcessor> processor_;
};

using SoundClientPtr = std::shared_ptr<SoundClient>;

#endif
