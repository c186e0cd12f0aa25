// SPDX-License-Identifier: MIT
// Noise suppression on the Speex preprocessor, an MMSE-type suppressor. What comes out lags one
// frame (10 ms) behind what goes in: the windows of neighbouring frames overlap.
#ifndef TOLVANEV_ENGINE_NOISESUPPRESSOR_H
#define TOLVANEV_ENGINE_NOISESUPPRESSOR_H

#include <memory>

#include "Frame.h"

struct SpeexPreprocessState_;

namespace engine {

class NoiseSuppressor {
  public:
    // `suppressionDb` is the most that noise is lowered, a negative number.
    explicit NoiseSuppressor(int suppressionDb);

    void process(Samples& samples);

    // Back to the state of a new suppressor, which knows nothing of the noise.
    void reset();

  private:
    struct Destroy {
        void operator()(SpeexPreprocessState_* state) const;
    };

    int suppressionDb_;
    std::unique_ptr<SpeexPreprocessState_, Destroy> state_;
};

}  // namespace engine

#endif
