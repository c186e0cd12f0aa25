// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_FLOOD_H
#define TOLVANEV_TESTS_FLOOD_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "StreamCheck.h"

// One run of traffic through a bridge, or a program that takes its place: numbered frames go in on
// the voice server's connection, and come back on it and on the program's standard output, where
// every one is checked. Owned by main, run once; the two descriptors are the caller's. Waits as
// long as frames come back, at most 20 s for one. Throws std::runtime_error when the program
// closes a stream, goes silent, or gives back what it should not.
class Flood {
  public:
    struct Plan {
        int voice = -1;    // a connected socket, blocking
        int results = -1;  // the program's standard output, not blocking
        uint32_t frames = 10000;
        uint32_t warmup = 0;   // frames ahead of those that count
        uint32_t pace_hz = 0;  // 0: as fast as frames come back
        // Frames sent and not returned, at first; more go out when the program stands still. As
        // many as the pipes to both engines hold, and more, so that it hardly ever does.
        uint32_t window = 512;
        bool plain = false;      // no renewals, and frames come back in the host's byte order
        bool negated = false;    // the engine negates each sample
        bool quick_ack = false;  // else the program's next frame may be held back until we send
        bool drain = false;      // every frame has to come back, or be dropped by a renewal
    };

    explicit Flood(const Plan& plan);
    // on_warm is called behind the warm-up, when the program is idle; what follows counts.
    void run(const std::function<void()>& on_warm);
    std::string report() const;  // one line of JSON

  private:
    using Clock = std::chrono::steady_clock;

    // What has arrived on one descriptor and was not taken yet: in the end, a part of a frame.
    struct Arrivals {
        static constexpr size_t PIPE_SIZE = 65536;  // bytes; no more come at once

        bool fill(int fd);
        template <typename Take>
        void takeFrames(Take take);

        std::vector<char> bytes = std::vector<char>(PIPE_SIZE + sizeof(NumberedFrame));
        size_t used = 0;
    };

    void transmit(uint32_t last);  // up to this number
    void flood(uint32_t last);
    void pace(uint32_t last);
    uint32_t roomInWindow() const;
    void noteRenewals();
    void send(uint32_t count);
    bool exchange(int timeout_ms);  // true: frames have moved on
    void takeReturned(NumberedFrame& frame);
    void settle();
    void drain();

    Plan plan_;
    RenewalModel model_;
    StreamCheck results_;
    StreamCheck returned_;
    Arrivals result_bytes_;
    Arrivals returned_bytes_;
    uint32_t sent_ = 0;
    size_t renewals_ = 0;       // that were noted
    uint32_t written_off_ = 0;  // frames up to this number are not waited for
    uint32_t window_;           // frames in flight now

    Clock::time_point moved_;     // when something last came
    Clock::time_point begin_;     // behind the warm-up
    Clock::time_point end_;       // what has come last
    uint64_t frames_before_ = 0;  // result frames up to then

    Clock::time_point sent_at_;        // the newest frame
    std::vector<uint32_t> pauses_;     // numbers ahead of which the program may have added silence
    std::vector<double> response_us_;  // paced: from then to a frame's return, in the same pass
    std::vector<uint32_t> lag_;        // paced: frames sent behind it until then
};

#endif
