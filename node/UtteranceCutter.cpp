// SPDX-License-Identifier: MIT
#include "UtteranceCutter.h"

#include <utility>

namespace node {

namespace {

size_t bytesOf(milliseconds time) {
    return static_cast<size_t>(time / FRAME_TIME) * AUDIO_SIZE;
}

}  // namespace

UtteranceCutter::UtteranceCutter(const CutterOptions& options, OnSpeech on_speech,
                                 OnUtterance on_utterance)
    : options_(options),
      on_speech_(std::move(on_speech)),
      on_utterance_(std::move(on_utterance)),
      preroll_size_(bytesOf(options.preroll)),
      longest_size_(bytesOf(options.longest)) {}

void UtteranceCutter::beginRun(uint64_t run) {
    run_ = run;
    data_frames_ = 0;
    noise_left_ = 0;
    last_type_ = FRAME_DATA;
    before_.clear();
}

void UtteranceCutter::take(const Frame& frame, Clock::time_point now, SystemTime wall) {
    lookForGap(now, wall);
    last_frame_ = now;
    const int32_t type = frame.type();
    switch (type) {
        case FRAME_DATA:
            if (noise_left_ > 0)
                --noise_left_;
            else
                takeAudio(frame, wall);
            ++data_frames_;
            break;
        case FRAME_START:
            finish(Cut::STREAM, wall);
            begin(wall, before_.size());
            on_speech_({true, run_, data_frames_, wall});
            break;
        case FRAME_END:
            finish(Cut::END, wall);
            break;
        default:
            finish(Cut::STREAM, wall);
            before_.clear();
            noise_left_ = type == FRAME_TOF && last_type_ == FRAME_EOF ? NOISE_FRAMES : 0;
    }
    last_type_ = type;
}

void UtteranceCutter::lookForGap(Clock::time_point now, SystemTime wall) {
    if (now - last_frame_ <= LONGEST_GAP)
        return;
    finish(Cut::GAP, wall);
    // Frames were held back: what came before them is not what was heard just before the next.
    before_.clear();
    noise_left_ = 0;
    last_type_ = FRAME_DATA;
}

void UtteranceCutter::endRun(SystemTime wall) {
    finish(Cut::RESTART, wall);
}

void UtteranceCutter::begin(SystemTime wall, size_t preroll) {
    utterance_ = Utterance{};
    utterance_.number = ++utterances_;
    utterance_.run = run_;
    utterance_.first_frame = data_frames_;
    utterance_.start = wall;
    utterance_.preroll = preroll;
    utterance_.audio = std::exchange(before_, "");
    open_ = true;
}

void UtteranceCutter::finish(Cut cut, SystemTime wall) {
    if (!open_)
        return;
    open_ = false;
    if (cut != Cut::LENGTH)
        on_speech_({false, run_, data_frames_, wall});
    utterance_.cut = cut;
    utterance_.end = wall;
    on_utterance_(std::make_shared<const Utterance>(std::move(utterance_)));
}

void UtteranceCutter::takeAudio(const Frame& frame, SystemTime wall) {
    if (!open_) {
        before_.append(frame.audio());
        if (before_.size() > preroll_size_)
            before_.erase(0, before_.size() - preroll_size_);
        return;
    }
    if (utterance_.audio.size() - utterance_.preroll >= longest_size_) {
        finish(Cut::LENGTH, wall);
        begin(wall, 0);
    }
    utterance_.audio.append(frame.audio());
}

}  // namespace node
