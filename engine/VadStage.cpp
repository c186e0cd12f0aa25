// SPDX-License-Identifier: MIT
#include "VadStage.h"

#include <utility>

namespace engine {

VadStage::VadStage(const VadSettings& settings, std::unique_ptr<VoiceActivity> activity, Sink sink)
    : sink_(std::move(sink)),
      activity_(std::move(activity)),
      utterance_(settings),
      lookBack_(settings.lookbackFrames, sink_) {}

void VadStage::accept(const AudioFrame& frame) {
    switch (frame.type) {
        case kData:
            return analyse(frame.samples);
        case kTopOfStream:
            return openStream();
        case kBottomOfStream:
            return closeStream();
        default:
            // The reader pairs our answers with data frames by position alone. A frame without
            // audio still takes a position, so it gets an answer, but tells the detector nothing.
            return lookBack_.push(answer(kData), Mark::None);
    }
}

void VadStage::finish() {
    lookBack_.flush();
}

void VadStage::analyse(const Samples& samples) {
    finding_ = activity_->examine(samples, utterance_.isOpen());
    const Mark mark = utterance_.update(finding_.voiced, finding_.sunk);
    lookBack_.push(answer(kData), mark);
}

// The reader drops what stands before TOF, so an open utterance is forgotten without an END.
void VadStage::openStream() {
    lookBack_.flush();
    activity_->reset();
    finding_ = {};
    utterance_.reset();
    sink_(bytesOf(answer(kTopOfStream)));
}

void VadStage::closeStream() {
    lookBack_.flush();
    const bool wasOpen = utterance_.isOpen();
    utterance_.reset();
    if (wasOpen)
        sink_(bytesOf(answer(kEnd)));
    sink_(bytesOf(answer(kBottomOfStream)));
}

ResultFrame VadStage::answer(FrameType type) const {
    ResultFrame result;
    result.type = type;
    result.values[kVoiced] = finding_.voiced ? 1 : 0;
    result.values[kLevel] = finding_.level;
    result.values[kNoise] = finding_.noise;
    result.values[kOpen] = utterance_.isOpen() ? 1 : 0;
    return result;
}

}  // namespace engine
