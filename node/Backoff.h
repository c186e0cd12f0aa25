// SPDX-License-Identifier: MIT
// How long to wait before the bridge is started again: 1, 2, 4 ... 30 s, and 1 s again after a run
// that had frames for a minute. A peer that comes back is served soon, and a bridge that cannot
// start costs next to nothing.
#ifndef TOLVANEV_NODE_BACKOFF_H
#define TOLVANEV_NODE_BACKOFF_H

#include <algorithm>
#include <utility>

#include "Loop.h"

namespace node {

class Backoff {
  public:
    static constexpr milliseconds SHORTEST{1000};
    static constexpr milliseconds LONGEST{30000};
    static constexpr milliseconds ENOUGH{60000};  // of frames, for a run to count as a good one

    // The pause behind a run whose first and last frame were this far apart.
    milliseconds after(milliseconds of_frames) {
        if (of_frames >= ENOUGH)
            next_ = SHORTEST;
        return std::exchange(next_, std::min(next_ * 2, LONGEST));
    }

  private:
    milliseconds next_ = SHORTEST;
};

}  // namespace node

#endif
