// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_STREAMCHECK_H
#define TOLVANEV_TESTS_STREAMCHECK_H

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "NumberedFrame.h"

// What the bridge must do next with its noise model, told from the result frames alone: they are
// the very frames that it watches. Owned by Flood; fed by the check of the result stream, asked by
// both. Waits for nothing, never throws.
class RenewalModel {
  public:
    using Noise = std::array<NumberedFrame, app_controller::NOISE_FRAME_SIZE>;

    // One result frame; true when a renewal follows it at once.
    bool watch(const NumberedFrame& frame);
    // The frames with which the renewal of that number, from 0 on, primes the engines; null when
    // the results that were seen so far do not call for it.
    const Noise* noise(size_t renewal) const;
    size_t renewals() const { return renewals_.size(); }

  private:
    Noise average() const;

    uint64_t watched_ = 0;
    int32_t state_ = FRAME_TOF;  // type of the last frame that was not plain audio
    size_t plain_ = 0;           // plain frames in a row
    Noise block_{};              // in the making
    size_t block_size_ = 0;
    std::deque<Noise> blocks_;     // the newest four
    std::vector<Noise> renewals_;  // one for each renewal so far
};

// Checks one stream of whole frames for content and order. Frames may be missing only behind a
// renewal, and are counted as lost there. Owned by Flood, two of them on one model. Waits for
// nothing. Throws std::runtime_error for a frame that is not the expected one.
class StreamCheck {
  public:
    // Numbers that never came: from the first one up to the next that came.
    struct Gap {
        uint32_t first;
        uint32_t next;
    };
    struct Counts {
        uint64_t live = 0;
        uint64_t silent = 0;   // frames of passes without data
        uint64_t markers = 0;  // START, END
        uint64_t noise = 0;    // EOF, TOF and noise of renewals
        uint64_t renewals = 0;
        std::vector<Gap> lost;  // one for each renewal

        uint64_t frames() const { return live + silent + markers + noise; }
    };

    // name: for messages. watching: this is the result stream, which drives the model.
    StreamCheck(const char* name, RenewalModel& model, bool watching)
        : name_(name), model_(model), watching_(watching) {}
    void take(const NumberedFrame& frame);
    // No more come of those up to this number: they are lost if a renewal was the last thing seen.
    void finish(uint32_t sent);
    // Takes what both have seen off their books, in order; it must be the same. But in the very
    // pass of a renewal frames come back whose other half it drops.
    static void compare(StreamCheck& results, StreamCheck& returned);

    const Counts& counts() const { return counts_; }
    uint32_t last() const { return last_; }  // number of the newest live frame

  private:
    enum Expected { ANY, TOF, NOISE };

    bool accept(const NumberedFrame& frame);
    bool acceptLive(const NumberedFrame& frame);
    bool acceptNoise(const NumberedFrame& frame);
    void loseUpTo(uint32_t next);
    [[noreturn]] void refuse(const std::string& expected, int64_t came) const;

    const char* name_;
    RenewalModel& model_;
    bool watching_;
    Counts counts_;
    std::deque<int64_t> seen_;  // not compared yet: numbers, 0 for silence, -type for the others
    Expected expected_ = ANY;
    size_t noise_seen_ = 0;       // noise frames since the last TOF
    bool speaking_ = false;       // START has come, END has not
    bool renewal_due_ = false;    // result stream: the next frame has to be an EOF
    bool may_have_lost_ = false;  // behind a renewal
    uint32_t last_ = 0;
};

#endif
