// SPDX-License-Identifier: MIT
// The role mmse: the audio with its noise suppressed, one frame for each frame.
#ifndef TOLVANEV_ENGINE_MMSESTAGE_H
#define TOLVANEV_ENGINE_MMSESTAGE_H

#include "NoiseSuppressor.h"
#include "Priming.h"
#include "Settings.h"
#include "Stage.h"

namespace engine {

class MmseStage : public Stage {
  public:
    MmseStage(const MmseSettings& settings, Sink sink);

    void accept(const AudioFrame& frame) override;
    void finish() override {}

  private:
    void settle();

    const int primingRepeats_;
    const int primingGainDb_;
    const Sink sink_;
    NoiseSuppressor suppressor_;
    Priming priming_;
};

}  // namespace engine

#endif
