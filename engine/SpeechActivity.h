// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_SPEECHACTIVITY_H
#define TOLVANEV_ENGINE_SPEECHACTIVITY_H

#include "LevelMeter.h"
#include "Settings.h"
#include "VoiceActivity.h"
#include "VoiceDetector.h"

namespace engine {

// Whether a frame stands out enough, and how the voice moves.
class LevelGate {
  public:
    LevelGate(int start_margin_db, int stay_margin_db);

    // By how many dB the frame stands out more than it must: above 0 it is speech. `suspected`:
    // what the detector says. Levels in dBFS.
    float excess(float level, float noise, bool suspected, bool open);

    // How much softer than its loudest the utterance's latest speech was: 0 for up to 7 dB, 1 from
    // 15 dB on.
    float sunk() const;

    void reset();

  private:
    const int start_margin_db_;
    const int stay_margin_db_;
    float loudest_ = FLOOR_DBFS;  // of the utterance, fading after it
    float recent_ = FLOOR_DBFS;   // of its latest 50 ms of speech or so
};

// Voice activity by two witnesses: the level over the background noise, and the detector, which
// knows how much that noise moves. The level alone takes every noise that is new for speech, and
// the peaks of babble; the detector alone takes too much for it, in favour of soft beginnings.
class SpeechActivity : public VoiceActivity {
  public:
    explicit SpeechActivity(const VadSettings& settings);

    Finding examine(const Samples& samples, bool open) override;
    void reset() override;

  private:
    VoiceDetector detector_;
    LevelMeter meter_;
    LevelGate gate_;
};

}  // namespace engine

#endif
