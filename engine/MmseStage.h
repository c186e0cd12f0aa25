// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_MMSESTAGE_H
#define TOLVANEV_ENGINE_MMSESTAGE_H

#include "FastStart.h"
#include "NoiseSuppressor.h"
#include "Priming.h"
#include "Settings.h"
#include "Stage.h"

namespace engine {

// The role mmse: the audio with its noise suppressed, one frame for each frame. Behind a
// primed start it knows the noise at once, else after 200 ms of it.
class MmseStage : public Stage {
  public:
    MmseStage(const MmseSettings& settings, Sink sink);

    void accept(const AudioFrame& frame) override;
    void finish() override {}

  private:
    void settle();
    void listen(const Samples& samples);
    void beginWithNoise(int repeats);

    const int priming_repeats_;
    const int priming_gain_db_;
    const int cold_repeats_;
    const Sink sink_;
    NoiseSuppressor suppressor_;
    Priming priming_;
    FastStart fast_start_;
};

}  // namespace engine

#endif
