// SPDX-License-Identifier: MIT
#include "VadStage.h"

#include <utility>

namespace engine {

VadStage::VadStage(const VadSettings& settings, std::unique_ptr<VoiceActivity> activity, Sink sink)
    : sink_(std::move(sink)),
      activity_(std::move(activity)),
      utterance_(settings),
      look_back_(settings.lookback_frames, sink_) {}

void VadStage::accept(const AudioFrame& frame) {
    switch (frame.type) {
        case FRAME_DATA:
            return analyse(frame.samples);
        case FRAME_TOF:
            return openStream();
        case FRAME_EOF:
            return closeStream();
        default:
            // The reader pairs our answers with data frames by position alone. A frame without
            // audio still takes a position, so it gets an answer, but tells the detector nothing.
            return look_back_.push(answer(FRAME_DATA), Mark::NONE);
    }
}

void VadStage::finish() {
    look_back_.flush();
}

void VadStage::analyse(const Samples& samples) {
    finding_ = activity_->examine(samples, utterance_.isOpen());
    const Mark mark = utterance_.update(finding_);
    look_back_.push(answer(FRAME_DATA), mark);
}

// The reader drops what stands before TOF, so an open utterance is forgotten without an END.
void VadStage::openStream() {
    look_back_.flush();
    activity_->reset();
    finding_ = {};
    utterance_.reset();
    sink_(bytesOf(answer(FRAME_TOF)));
}

void VadStage::closeStream() {
    look_back_.flush();
    const bool was_open = utterance_.isOpen();
    utterance_.reset();
    if (was_open)
        sink_(bytesOf(answer(FRAME_END)));
    sink_(bytesOf(answer(FRAME_EOF)));
}

ResultFrame VadStage::answer(FrameType type) const {
    ResultFrame result;
    result.type = type;
    result.values[VOICED] = finding_.voiced ? 1 : 0;
    result.values[LEVEL] = finding_.level;
    result.values[NOISE] = finding_.noise;
    result.values[OPEN] = utterance_.isOpen() ? 1 : 0;
    return result;
}

}  // namespace engine
