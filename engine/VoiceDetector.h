// SPDX-License-Identifier: MIT
// Voice activity on the WebRTC audio processing library.
#ifndef TOLVANEV_ENGINE_VOICEDETECTOR_H
#define TOLVANEV_ENGINE_VOICEDETECTOR_H

#include <memory>

#include "Frame.h"
#include "Settings.h"

namespace engine {

class VoiceDetector {
  public:
    explicit VoiceDetector(Likelihood likelihood);
    ~VoiceDetector();

    bool isVoiced(const Samples& samples);

    // Back to the state of a new detector.
    void reset();

  private:
    struct Processing;  // keeps the library's headers out of everyone else's way

    const Likelihood likelihood_;
    std::unique_ptr<Processing> processing_;
};

}  // namespace engine

#endif
