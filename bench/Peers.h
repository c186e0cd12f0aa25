// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_BENCH_PEERS_H
#define TOLVANEV_BENCH_PEERS_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

// All peers of one bridge: starts the program, is its ROS node (standard input and output), its
// sound client (listens, says nothing) and its voice server (connects). Loopback only. Throws
// std::runtime_error, with the system's text, when one of them cannot be.
class Peers {
  public:
    struct Program {
        std::vector<std::string> command;  // the bridge's own options are appended
        std::string engine;
        std::string mmse_setting;
        std::string vad_setting;
        bool sound_client = true;  // false: the program does not connect to one
        bool quiet = true;         // its standard error goes to /dev/null
    };

    explicit Peers(const Program& program);
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;
    ~Peers();  // closes everything; a program that is still there five seconds later is ended

    pid_t pid() const { return pid_; }
    uint16_t voicePort() const { return voice_port_; }
    int voice() const { return voice_; }      // a blocking socket
    int results() const { return results_; }  // the program's standard output, not blocking
    void closeInput();                        // the end of standard input ends the program
    bool waitForEnd(int seconds);             // true: it has ended by itself, with status 0

  private:
    void open(const Program& program);
    void end();
    void start(const Program& program, uint16_t sound_port);
    void connectVoice();

    pid_t pid_ = -1;
    uint16_t voice_port_ = 0;
    int input_ = -1;
    int results_ = -1;
    int sound_ = -1;
    int voice_ = -1;
};

#endif
