// SPDX-License-Identifier: MIT
// What every component of the bridge shares: the sizes and types of frames, the queues they wait
// in, and two small helpers around system calls. Byte tables: docs/protocols.md.
#ifndef TOLVANEV_COMMON_H
#define TOLVANEV_COMMON_H

#include <csignal>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "ReceiveQueue.h"

using ByteArray = std::vector<char>;  // packed values and whole frames; not a character string
using NoiseQueue = std::deque<ReceiveQueue>;  // blocks of NOISE_FRAME_SIZE frames, oldest first

// Frame types: the 32-bit header of a frame-sync frame. No producer uses 3 to 8.
enum FrameType : int {
    FRAME_DATA = 0,
    FRAME_START = 1,  // speech begins
    FRAME_END = 2,    // speech has ended
    FRAME_TOF = 9,    // start of stream
    FRAME_EOF = 10,   // end of stream
};

// Sizes in bytes.
namespace framesync {
constexpr unsigned int HEADER_SIZE = 4;
constexpr unsigned int VAD_DATA_SIZE = 100;  // 25 floats
constexpr unsigned int VAD_FRAME_SIZE = 104;
constexpr unsigned int MMSE_DATA_SIZE = 320;  // 160 samples: 10 ms at 16 kHz
constexpr unsigned int MMSE_FRAME_SIZE = 324;
constexpr unsigned int VOICE_SERVER_DATA_SIZE = 320;
constexpr unsigned int VOICE_SERVER_FRAME_SIZE = 324;
}  // namespace framesync

// Counts of frames or blocks.
namespace app_controller {
constexpr unsigned int NOISE_FRAME_SIZE = 10;  // frames in a noise block; the delay line keeps 9
constexpr unsigned int NOISE_MODEL_RENEW_FREQ = 500;  // examined frames between renewals: 5 s
constexpr unsigned int NOISE_QUE_SIZE = 5;            // an average uses fewer blocks than this
}  // namespace app_controller

// Stands around every system call that can wait for a peer, reads behind a successful select
// included, and around messages to standard error. Only waitpid goes without: the handler would
// collect the same engine, so an interrupt acts right after it.
//
// An interrupt (SIGINT) ends the process from inside its handler, which stops the engines and drops
// every queue. Amid our own code, with a queue or the heap half changed, that would corrupt memory;
// so the handler acts while a Wait stands, and leaves an interrupt that comes between two waits to
// the next one, microseconds later.
class Wait {
  public:
    Wait() {
        waiting = 1;
        if (pending)
            raise(pending);
    }
    ~Wait() { waiting = 0; }
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

    // For the handler of this signal: true = act now, false = the next Wait raises it again.
    static bool mayInterrupt(int signal_number) {
        pending = waiting ? 0 : signal_number;
        return waiting;
    }

  private:
    static inline volatile sig_atomic_t waiting = 0;
    static inline volatile sig_atomic_t pending = 0;  // the signal left to the next Wait; 0 = none
};

// Runs one system call that can wait.
template <typename Call>
auto interruptible(Call call) {
    const Wait wait;
    return call();
}

// Lets an interrupt act that has come since the last Wait.
inline void heedInterrupt() {
    const Wait wait;
}

// Waits until fd can be read, at most timeout_ms milliseconds; 0 polls.
// Returns what select returns: 1 readable, 0 time-out, -1 failed with errno set. select cannot
// watch a descriptor of FD_SETSIZE or above: a failed wait with EINVAL (EBADF for a negative one).
int waitReadable(int fd, uint32_t timeout_ms);

// The system's text for an error number that was copied from errno right after the failed call.
std::string systemErrorText(int error_number);

#endif
