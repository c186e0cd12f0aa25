// SPDX-License-Identifier: MIT
// Voice activity on the WebRTC audio processing library.
#ifndef TOLVANEV_ENGINE_VOICEDETECTOR_H
#define TOLVANEV_ENGINE_VOICEDETECTOR_H

#include <memory>

#include "Settings.h"
#include "VoiceActivity.h"

namespace engine {

class VoiceDetector : public VoiceActivity {
  public:
    explicit VoiceDetector(Likelihood likelihood);
    ~VoiceDetector() override;

    bool isVoiced(const Samples& samples) override;
    void reset() override;

  private:
    struct Processing;  // keeps the library's headers out of everyone else's way

    const Likelihood likelihood_;
    std::unique_ptr<Processing> processing_;
};

}  // namespace engine

#endif
