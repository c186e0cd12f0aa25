// SPDX-License-Identifier: MIT
#include "NoiseSuppressor.h"

#include <speex/speex_preprocess.h>

#include <array>
#include <stdexcept>

namespace engine {

NoiseSuppressor::NoiseSuppressor(int suppression_db, int gentle_db)
    : depth_(suppression_db, gentle_db) {
    reset();
}

void NoiseSuppressor::process(Samples& samples) {
    speex_preprocess_run(state_.get(), samples.data());
    std::array<spx_int32_t, Depth::BINS> spectrum{};
    speex_preprocess_ctl(state_.get(), SPEEX_PREPROCESS_GET_PSD, spectrum.data());
    depth_.follow(spectrum);
    setDepth();
}

void NoiseSuppressor::settled() {
    depth_.know();
    setDepth();
}

void NoiseSuppressor::reset() {
    state_.reset(speex_preprocess_state_init(FRAME_SAMPLES, SAMPLE_RATE_HZ));
    if (!state_)
        throw std::runtime_error("noise suppression: cannot be created");
    // Denoise only: gain control and dereverberation stay off, as in a new state.
    depth_.reset();
    setDepth();
}

void NoiseSuppressor::setDepth() {
    int depth_db = depth_.decibels();
    speex_preprocess_ctl(state_.get(), SPEEX_PREPROCESS_SET_NOISE_SUPPRESS, &depth_db);
}

void NoiseSuppressor::Destroy::operator()(SpeexPreprocessState_* state) const {
    speex_preprocess_state_destroy(state);
}

}  // namespace engine
