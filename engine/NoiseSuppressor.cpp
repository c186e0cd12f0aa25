// SPDX-License-Identifier: MIT
#include "NoiseSuppressor.h"

#include <speex/speex_preprocess.h>

#include <stdexcept>

namespace engine {

NoiseSuppressor::NoiseSuppressor(int suppression_db) : suppression_db_(suppression_db) {
    reset();
}

void NoiseSuppressor::process(Samples& samples) {
    speex_preprocess_run(state_.get(), samples.data());
}

void NoiseSuppressor::reset() {
    state_.reset(speex_preprocess_state_init(FRAME_SAMPLES, SAMPLE_RATE_HZ));
    if (!state_)
        throw std::runtime_error("noise suppression: cannot be created");
    // Denoise only: gain control and dereverberation stay off, as in a new state.
    speex_preprocess_ctl(state_.get(), SPEEX_PREPROCESS_SET_NOISE_SUPPRESS, &suppression_db_);
}

void NoiseSuppressor::Destroy::operator()(SpeexPreprocessState_* state) const {
    speex_preprocess_state_destroy(state);
}

}  // namespace engine
