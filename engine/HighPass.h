// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_HIGHPASS_H
#define TOLVANEV_ENGINE_HIGHPASS_H

#include <cmath>
#include <numbers>

#include "Frame.h"

namespace engine {

// Second-order Butterworth high-pass for level measurement: of pink noise and hum the larger part
// lies below speech, and the noise suppressor lets it through. Keeps its state between frames.
class HighPass {
  public:
    explicit HighPass(double cutoff_hz)
        : k_(std::tan(std::numbers::pi * cutoff_hz / SAMPLE_RATE_HZ)),
          norm_(1 / (1 + std::numbers::sqrt2 * k_ + k_ * k_)) {}

    double next(double in) {
        const double out = norm_ * in + first_;
        first_ = second_ - 2 * norm_ * in - 2 * (k_ * k_ - 1) * norm_ * out;
        second_ = norm_ * in - (1 - std::numbers::sqrt2 * k_ + k_ * k_) * norm_ * out;
        return out;
    }

  private:
    double k_;  // the cut-off, pre-warped for the bilinear transform
    double norm_;
    double first_ = 0;  // delay elements, transposed direct form II
    double second_ = 0;
};

}  // namespace engine

#endif
