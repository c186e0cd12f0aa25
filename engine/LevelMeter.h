// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_LEVELMETER_H
#define TOLVANEV_ENGINE_LEVELMETER_H

#include "Frame.h"
#include "HighPass.h"

namespace engine {

constexpr double CUTOFF_HZ = 150;

// The noise suppressor's overlapping windows fade a new stream in. An estimate that began there
// would be far too low, and all noise would stand out from it.
constexpr int FADE_IN_FRAMES = 3;

// The level of a frame in dBFS, given the sum of its squared samples.
float levelOf(double energy);

// Level of the frames and of the background noise, in dBFS, above the lowest tones of speech. The
// owner measures a frame, decides about it, and then lets the noise estimate follow it.
class LevelMeter {
  public:
    void measure(const Samples& samples);

    // `suspected`: the detector takes the measured frame for speech.
    void follow(bool suspected);

    void reset();

    // False in the first frames of a stream, when there is no estimate to compare with.
    bool isReady() const;

    float level() const { return level_; }
    float noise() const { return noise_; }

  private:
    HighPass high_pass_{CUTOFF_HZ};
    float level_ = FLOOR_DBFS;
    float noise_ = FLOOR_DBFS;
    int age_ = 0;  // frames followed
};

}  // namespace engine

#endif
