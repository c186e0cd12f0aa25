// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_LOOKBACK_H
#define TOLVANEV_ENGINE_LOOKBACK_H

#include <deque>

#include "Frame.h"
#include "Utterance.h"

namespace engine {

// Holds the latest answers back, so that START can stand before frames that came before the one
// at which speech was declared. With a depth of 0 every frame leaves at once. Owned by the VAD
// stage, which flushes it at each end of a stream; passes on what the sink throws.
class LookBack {
  public:
    LookBack(int depth_frames, Sink sink);

    // Takes the next frame and what was found at it; sends what is old enough.
    void push(const ResultFrame& frame, Mark mark);

    // Sends everything that is held.
    void flush();

  private:
    struct Held {
        ResultFrame frame;
        Mark before;
    };

    void markStart();
    void sendOldest();

    const size_t depth_;
    const Sink sink_;
    std::deque<Held> held_;
};

}  // namespace engine

#endif
