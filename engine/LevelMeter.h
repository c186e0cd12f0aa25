// SPDX-License-Identifier: MIT
// Level of the frames and of the background noise, for display only: no decision hangs on them.
#ifndef TOLVANEV_ENGINE_LEVELMETER_H
#define TOLVANEV_ENGINE_LEVELMETER_H

#include "Frame.h"

namespace engine {

constexpr float kFloorDbfs = -100;  // 16-bit samples end at -90 dBFS; a level must be finite

class LevelMeter {
  public:
    void update(const Samples& samples, bool voiced);
    void reset();

    float level() const { return level_; }
    float noise() const { return noise_; }

  private:
    float level_ = kFloorDbfs;
    float noise_ = kFloorDbfs;
    bool fresh_ = true;
};

}  // namespace engine

#endif
