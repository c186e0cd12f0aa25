// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ROSCONNECTOR_H
#define TOLVANEV_ROSCONNECTOR_H

#include <memory>
#include <stdexcept>
#include <string>

#include "common.h"

// what() is "[ROSConnectorError] " and the message.
class ROSConnectorError : public std::runtime_error {
  public:
    explicit ROSConnectorError(const std::string& message)
        : std::runtime_error("[ROSConnectorError] " + message) {}
};

// The link to the ROS node that started us: result frames leave on standard output, the words
// "play_sound_on" and "play_sound_off" come in on standard input. Owned by Application.
// Never waits for input; a write waits while the node does not read. Failures, the end of standard
// input among them, throw ROSConnectorError. Closes neither stream.
class ROSConnector {
  public:
    ROSConnector() = default;
    ROSConnector(const ROSConnector&) = delete;
    ROSConnector& operator=(const ROSConnector&) = delete;
    virtual ~ROSConnector() = default;

    bool initialize();  // play-sound state off, queues empty; true
    // Queues a block for standard output; nothing is written yet.
    void addSendData(const ReceiveData& data);
    void addSendData(ReceiveData&& data);
    // Writes what is queued, reads at most 256 bytes, applies the words in them.
    void process();
    // True while the node says that it is playing a sound.
    bool getPlaySoundState() const;

  protected:
    void writeData();
    void readData();
    void processData();

    // One write to standard output; 0. A short write is not noticed.
    int write(const char* buf, unsigned size);
    // Waits up to timeout ms for standard input: -1 nothing came, else the number of bytes read,
    // 0 at the end of input.
    int read(char* buf, unsigned size, unsigned timeout);

  private:
    void applyWord(const std::string& word);

    ReceiveQueue send_que_;  // blocks for standard output, oldest first
    ReceiveData recv_data_;  // bytes of this pass, NUL padding included
    bool play_sound_state_ = false;
};

using ROSConnectorPtr = std::shared_ptr<ROSConnector>;

#endif
