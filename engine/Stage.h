// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_STAGE_H
#define TOLVANEV_ENGINE_STAGE_H

#include "Frame.h"

namespace engine {

// One role of the engine: frames in one by one, answers out through the sink given to the stage.
// main owns one for the whole run. It waits for nothing by itself; what the sink throws ends the
// run.
class Stage {
  public:
    virtual ~Stage() = default;

    virtual void accept(const AudioFrame& frame) = 0;

    // The input has ended between two frames: nothing may stay behind.
    virtual void finish() = 0;
};

}  // namespace engine

#endif
