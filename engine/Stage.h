// SPDX-License-Identifier: MIT
// One role of the engine: frames in one by one, answers out through the sink given to the stage.
#ifndef TOLVANEV_ENGINE_STAGE_H
#define TOLVANEV_ENGINE_STAGE_H

#include "Frame.h"

namespace engine {

class Stage {
  public:
    virtual ~Stage() = default;

    virtual void accept(const AudioFrame& frame) = 0;

    // The input has ended between two frames: nothing may stay behind.
    virtual void finish() = 0;
};

}  // namespace engine

#endif
