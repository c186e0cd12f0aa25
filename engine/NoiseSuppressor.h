// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_NOISESUPPRESSOR_H
#define TOLVANEV_ENGINE_NOISESUPPRESSOR_H

#include <memory>

#include "Depth.h"
#include "Frame.h"

struct SpeexPreprocessState_;

namespace engine {

// Noise suppression on the Speex preprocessor, an MMSE-type suppressor. What comes out lags one
// frame (10 ms) behind what goes in: the windows of neighbouring frames overlap.
// Throws std::runtime_error when the library gives it no memory.
class NoiseSuppressor {
  public:
    // The most and the least that noise is lowered, see Depth.
    NoiseSuppressor(int suppression_db, int gentle_db);

    void process(Samples& samples);

    // The latest frames were nothing but steady noise.
    void settled();

    // Back to the state of a new suppressor, which knows nothing of the noise.
    void reset();

  private:
    struct Destroy {
        void operator()(SpeexPreprocessState_* state) const;
    };

    void setDepth();

    Depth depth_;
    std::unique_ptr<SpeexPreprocessState_, Destroy> state_;
};

}  // namespace engine

#endif
