// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_VOICEDETECTOR_H
#define TOLVANEV_ENGINE_VOICEDETECTOR_H

#include <array>
#include <cstddef>

#include "BandPass.h"
#include "Frame.h"

namespace engine {

// Suspects speech in what stands out from the noise by more than the noise itself moves, in four
// bands that hold speech, and does not stay the same for half a second. So neither babble, which
// moves a lot, nor a fan that is switched on is taken for speech as easily as by its level alone.
// Both ideas are published: a threshold that adapts to mean and deviation of the noise (Davis,
// Nordholm, Togneri: Statistical voice activity detection using low-variance spectrum estimation
// and an adaptive threshold, 2006), and the variability of speech over a long window (Ghosh,
// Tsiartas, Narayanan: Robust voice activity detection using long-term signal variability, 2011).
class VoiceDetector {
  public:
    VoiceDetector();

    bool isVoiced(const Samples& samples);

    // Back to the state of a new detector.
    void reset();

  private:
    static constexpr size_t BANDS = 4;

    struct Band {
        BandPass filter;
        float level;     // of the latest frame, dBFS
        float mean;      // of the noise, dBFS
        float variance;  // of the noise, square dB
    };

    void measure(const Samples& samples);
    bool standsOut() const;
    bool isStill() const;
    void learn(bool voiced);

    std::array<Band, BANDS> bands_;
    std::array<float, 50> latest_{};  // mean level of the bands, half a second in a ring
    size_t age_ = 0;                  // frames
    int quiet_;                       // frames since one stood out
};

}  // namespace engine

#endif
