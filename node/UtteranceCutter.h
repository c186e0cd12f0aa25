// SPDX-License-Identifier: MIT
// Cuts utterances out of the stream: the frames from START to END, and some from before START,
// since START comes when speech is certain. Either marker may come without its other half, when the
// frames around it were held back; an utterance whose END does not come ends at EOF, TOF or another
// START, at a second without frames, at the end of the run or at the longest length, where the next
// one begins.
//
// The ten data frames behind an EOF and a TOF that follow one another directly are the bridge's own
// noise and belong to no utterance. Owned by the node; waits for nothing.
#ifndef TOLVANEV_NODE_UTTERANCE_CUTTER_H
#define TOLVANEV_NODE_UTTERANCE_CUTTER_H

#include <functional>
#include <string>

#include "Listener.h"

namespace node {

struct CutterOptions {
    milliseconds preroll{200};    // audio from before START that each utterance gets
    milliseconds longest{60000};  // of an utterance, without its preroll
};

class UtteranceCutter {
  public:
    static constexpr milliseconds LONGEST_GAP{1000};
    static constexpr unsigned NOISE_FRAMES = 10;  // behind EOF and TOF

    using OnSpeech = std::function<void(const SpeechEdge&)>;
    using OnUtterance = std::function<void(const UtterancePtr&)>;
    UtteranceCutter(const CutterOptions& options, OnSpeech on_speech, OnUtterance on_utterance);

    void beginRun(uint64_t run);
    // wall is the time for people, now the one that gaps are measured by.
    void take(const Frame& frame, Clock::time_point now, SystemTime wall);
    void lookForGap(Clock::time_point now, SystemTime wall);  // now and then
    // Frames that have come are taken late: from now on time counts again.
    void excuse(Clock::time_point now) { last_frame_ = now; }
    void endRun(SystemTime wall);

    bool open() const { return open_; }
    uint64_t count() const { return utterances_; }

  private:
    void begin(SystemTime wall, size_t preroll);
    void finish(Cut cut, SystemTime wall);
    void takeAudio(const Frame& frame, SystemTime wall);

    CutterOptions options_;
    OnSpeech on_speech_;
    OnUtterance on_utterance_;
    size_t preroll_size_;  // bytes
    size_t longest_size_;  // bytes
    std::string before_;   // the last preroll_size_ bytes outside utterances, without a gap
    Utterance utterance_;  // the open one
    bool open_ = false;
    uint64_t utterances_ = 0;
    uint64_t run_ = 0;
    uint64_t data_frames_ = 0;  // of this run
    unsigned noise_left_ = 0;   // of the bridge's own frames
    int32_t last_type_ = FRAME_DATA;
    Clock::time_point last_frame_;
};

}  // namespace node

#endif
