// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_VADSTAGE_H
#define TOLVANEV_ENGINE_VADSTAGE_H

#include <memory>

#include "LookBack.h"
#include "Settings.h"
#include "Stage.h"
#include "Utterance.h"
#include "VoiceActivity.h"

namespace engine {

// The role vad: one answer for each frame, plus START and END around utterances. An EOF
// amid an utterance is preceded by its END, a TOF is not.
class VadStage : public Stage {
  public:
    VadStage(const VadSettings& settings, std::unique_ptr<VoiceActivity> activity, Sink sink);

    void accept(const AudioFrame& frame) override;
    void finish() override;

  private:
    void analyse(const Samples& samples);
    void openStream();
    void closeStream();
    ResultFrame answer(FrameType type) const;

    const Sink sink_;
    const std::unique_ptr<VoiceActivity> activity_;
    Finding finding_;  // about the latest data frame
    Utterance utterance_;
    LookBack look_back_;
};

}  // namespace engine

#endif
