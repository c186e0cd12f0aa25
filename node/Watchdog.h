// SPDX-License-Identifier: MIT
// Finds a bridge that runs but does not work. Looked at once a second with what the node sees of
// it; answers with the reason for a restart.
//
// - No sign of life for `silence`, once both peers were there: neither a frame nor an answer of
//   every engine. A bridge that works passes ten frames of silence a second even when the voice
//   server says nothing, and the engines answer them also while EPD is off or a sound plays, when
//   the node gets no frame. So an engine hangs, or a peer does not read. Where the system does not
//   tell what engines write, a lack of frames proves nothing.
// - More than `most_frames` a second for `spinning`: a voice server has closed one way only, and
//   the bridge takes the end of its data for frames as fast as it can.
// - No peers for `waiting`: each failed attempt to reach the sound client costs the bridge a
//   descriptor, and after some 85 minutes it could never connect.
//
// Owned by the supervisor, one for each run. Time and sight are given to it.
#ifndef TOLVANEV_NODE_WATCHDOG_H
#define TOLVANEV_NODE_WATCHDOG_H

#include <optional>
#include <string>
#include <vector>

#include "Status.h"

namespace node {

struct WatchdogOptions {
    milliseconds silence{10000};  // 0 = never
    double most_frames = 1000;    // a second, ten times what audio has; 0 = any number
    milliseconds spinning{5000};
    milliseconds waiting{1800000};  // half an hour; 0 = for ever
};

class Watchdog {
  public:
    Watchdog(const WatchdogOptions& options, Clock::time_point began);

    struct Sight {
        bool connected = false;  // the bridge has said so
        uint64_t frames = 0;     // of every type, this run
        std::vector<ProcessVitals> engines;
    };
    // The reason for a restart, if there is one.
    std::optional<std::string> look(const Sight& sight, Clock::time_point now);
    void excuse(Clock::time_point now) { last_life_ = last_calm_ = last_look_ = now; }
    // No engine could be looked at so far: a lack of frames alone is no lack of life.
    bool blind() const { return connected_ && !seen_; }

  private:
    std::optional<std::string> lookForSilence(const Sight& sight, Clock::time_point now);
    std::optional<std::string> lookForSpin(const Sight& sight, Clock::time_point now);

    WatchdogOptions options_;
    Clock::time_point began_;
    bool connected_ = false;
    bool seen_ = false;            // the engines' answers, at some time of this run
    Clock::time_point last_life_;  // sign of it
    Clock::time_point last_look_;
    Clock::time_point last_calm_;         // rate within bounds
    uint64_t frames_ = 0;                 // at the last look
    uint64_t passed_ = 0;                 // by frames or by the engines' answers, likewise
    std::vector<ProcessVitals> engines_;  // at the last sign of life
};

}  // namespace node

#endif
