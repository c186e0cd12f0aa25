// SPDX-License-Identifier: MIT
// What every component of the bridge shares: the sizes and types of frames, the queues they wait
// in, and two small helpers around system calls. Byte tables: docs/protocols.md.
#ifndef TOLVANEV_COMMON_H
#define TOLVANEV_COMMON_H

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

using ByteArray = std::vector<char>;    // packed values and whole frames; not a character string
using ReceiveData = std::vector<char>;  // one frame, or bytes as they came from a peer
using ReceiveQueue = std::deque<ReceiveData>;  // frames between two stages, oldest first
using NoiseQueue = std::deque<ReceiveQueue>;   // blocks of NOISE_FRAME_SIZE frames, oldest first

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

// Waits until fd can be read, at most timeout_ms milliseconds; 0 polls.
// Returns what select returns: 1 readable, 0 time-out, -1 failed with errno set. select cannot
// watch a descriptor of FD_SETSIZE or above: a failed wait with EINVAL (EBADF for a negative one).
int waitReadable(int fd, uint32_t timeout_ms);

// The system's text for an error number that was copied from errno right after the failed call.
std::string systemErrorText(int error_number);

#endif
