// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_BANDPASS_H
#define TOLVANEV_ENGINE_BANDPASS_H

#include <cmath>
#include <numbers>

#include "Frame.h"

namespace engine {

// Second-order band-pass between two frequencies, where it is 3 dB down. Keeps its state between
// frames. Each of the detector's bands owns one.
class BandPass {
  public:
    BandPass(double low_hz, double high_hz) {
        // The edges, pre-warped for the bilinear transform.
        const double low = std::tan(std::numbers::pi * low_hz / SAMPLE_RATE_HZ);
        const double high = std::tan(std::numbers::pi * high_hz / SAMPLE_RATE_HZ);
        const double norm = 1 / (1 + (high - low) + low * high);
        gain_ = norm * (high - low);
        first_ = norm * 2 * (low * high - 1);
        second_ = norm * (1 - (high - low) + low * high);
    }

    double next(double in) {
        const double out = gain_ * in + delayed_;
        delayed_ = older_ - first_ * out;
        older_ = -gain_ * in - second_ * out;
        return out;
    }

  private:
    double gain_;
    double first_;  // feedback
    double second_;
    double delayed_ = 0;  // delay elements, transposed direct form II
    double older_ = 0;
};

}  // namespace engine

#endif
