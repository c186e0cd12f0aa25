// SPDX-License-Identifier: MIT
#include "VoiceDetector.h"

#include <webrtc/modules/audio_processing/include/audio_processing.h>
#include <webrtc/modules/interface/module_common_types.h>
#include <algorithm>
#include <stdexcept>
#include <string>

namespace engine {

namespace {

void require(int status) {
    if (status != webrtc::AudioProcessing::kNoError)
        throw std::runtime_error("voice detection: error " + std::to_string(status));
}

webrtc::VoiceDetection::Likelihood translate(Likelihood likelihood) {
    switch (likelihood) {
        case Likelihood::Low:
            return webrtc::VoiceDetection::kLowLikelihood;
        case Likelihood::Moderate:
            return webrtc::VoiceDetection::kModerateLikelihood;
        case Likelihood::High:
            return webrtc::VoiceDetection::kHighLikelihood;
        case Likelihood::VeryLow:
            break;
    }
    return webrtc::VoiceDetection::kVeryLowLikelihood;
}

}  // namespace

struct VoiceDetector::Processing {
    explicit Processing(Likelihood likelihood) : library(webrtc::AudioProcessing::Create()) {
        if (!library)
            throw std::runtime_error("voice detection: cannot be created");
        require(library->voice_detection()->set_likelihood(translate(likelihood)));
        require(library->voice_detection()->Enable(true));
        frame.sample_rate_hz_ = kSampleRateHz;
        frame.samples_per_channel_ = kFrameSamples;
        frame.num_channels_ = 1;
    }

    const std::unique_ptr<webrtc::AudioProcessing> library;
    webrtc::AudioFrame frame;
};

VoiceDetector::VoiceDetector(Likelihood likelihood)
    : likelihood_(likelihood), processing_(std::make_unique<Processing>(likelihood)) {}

VoiceDetector::~VoiceDetector() = default;

bool VoiceDetector::isVoiced(const Samples& samples) {
    std::ranges::copy(samples, processing_->frame.data_);
    require(processing_->library->ProcessStream(&processing_->frame));
    return processing_->library->voice_detection()->stream_has_voice();
}

// A new instance rather than the library's Initialize(): nothing of the old stream can survive.
void VoiceDetector::reset() {
    processing_ = std::make_unique<Processing>(likelihood_);
}

}  // namespace engine
