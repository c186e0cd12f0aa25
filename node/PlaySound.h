// SPDX-License-Identifier: MIT
// Who says that the robot plays a sound. The state is on while any of those who said "on" has not
// said "off"; one who has gone, or whose "on" is older than the limit, counts as "off", with a
// warning, or a robot would stay deaf because a player crashed.
//
// Owned by the node; a holder is a number that the caller chooses. Time is given to it.
#ifndef TOLVANEV_NODE_PLAY_SOUND_H
#define TOLVANEV_NODE_PLAY_SOUND_H

#include <cstdint>
#include <map>
#include <vector>

#include "Loop.h"

namespace node {

class PlaySound {
  public:
    using Holder = uint64_t;
    explicit PlaySound(milliseconds limit) : limit_(limit) {}  // 0 = none

    // Saying it again begins the time anew.
    void set(Holder holder, bool on, Clock::time_point now) {
        if (on)
            since_[holder] = now;
        else
            since_.erase(holder);
    }
    // True when it had said "on" and is now switched off.
    bool gone(Holder holder) { return since_.erase(holder) > 0; }
    // The holders that are switched off because of the limit.
    std::vector<Holder> expire(Clock::time_point now) {
        std::vector<Holder> late;
        for (const auto& [holder, since] : since_) {
            if (limit_.count() > 0 && now - since >= limit_)
                late.push_back(holder);
        }
        for (const Holder holder : late)
            since_.erase(holder);
        return late;
    }
    bool on() const { return !since_.empty(); }

  private:
    milliseconds limit_;
    std::map<Holder, Clock::time_point> since_;
};

}  // namespace node

#endif
