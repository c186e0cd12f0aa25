// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_BENCH_TRIAL_H
#define TOLVANEV_BENCH_TRIAL_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "Peers.h"
#include "ProcessFigures.h"
#include "StreamCheck.h"

// One run of a program against all its peers: numbered frames go in through the voice server's
// connection, and come back on it and on the program's standard output. Throws what Peers throws,
// and std::runtime_error when the program ends or goes silent amid the run.
class Trial {
  public:
    struct Plan {
        Peers::Program program;
        uint32_t frames = 10000;
        uint32_t warmup = 1000;  // frames that are returned before the figures begin
        uint32_t pace_hz = 0;    // 0: flood
        // Flood: frames sent and not returned. Enough to fill the pipes to engines that are just
        // starting: a bridge that runs out of frames waits 100 ms.
        uint32_t window = 384;
        bool plain = false;
        bool quick_ack = false;  // else the program's next frame may be held back until we send
    };

    explicit Trial(const Plan& plan);
    void run();
    std::string report() const;  // one line of JSON
    bool good() const { return results_.wrong_ == 0 && returned_.wrong_ == 0 && ended_well_; }

  private:
    using Clock = std::chrono::steady_clock;

    // The bytes of one stream behind its last whole frame.
    struct Buffer {
        std::vector<char> bytes = std::vector<char>(1 << 16);
        size_t used = 0;
    };

    void flood();
    void pace();
    uint32_t roomInWindow() const;
    void noteRenewals();
    void settle();
    void send(uint32_t count);
    bool exchange(int timeout_ms);
    void takeResults();
    void takeReturned();
    void noteDelay();
    void beginFigures();
    void endFigures();
    std::string delays() const;

    Plan plan_;
    Peers peers_;
    RenewalModel model_;
    StreamCheck results_;
    StreamCheck returned_;
    Buffer result_bytes_;
    Buffer returned_bytes_;
    uint32_t sent_ = 0;
    size_t renewals_ = 0;         // that were noted
    uint32_t written_off_ = 0;    // frames up to this number are not waited for
    uint64_t silent_before_ = 0;  // frames of silence up to the last renewal
    bool ended_well_ = false;

    struct Mark {
        ProcessFigures process;
        Clock::time_point time;
        uint64_t frames = 0;  // result frames
    };
    Mark begin_;
    Mark end_;
    bool measuring_ = false;

    std::vector<Clock::time_point> sent_at_;  // paced: by frame number
    std::vector<double> response_us_;  // paced: from the newest frame sent to a frame returned
    std::vector<uint32_t> lag_;        // paced: numbers between those two
};

#endif
