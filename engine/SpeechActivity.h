// SPDX-License-Identifier: MIT
// Voice activity by two witnesses: the library's detector, which knows what speech sounds like,
// and the level over the background noise. The library alone takes noise for speech until the
// suppressor has settled, and low rumble at any time; the level alone every noise that is new.
#ifndef TOLVANEV_ENGINE_SPEECHACTIVITY_H
#define TOLVANEV_ENGINE_SPEECHACTIVITY_H

#include "LevelMeter.h"
#include "Settings.h"
#include "VoiceActivity.h"
#include "VoiceDetector.h"

namespace engine {

// Whether a frame stands out enough.
class LevelGate {
  public:
    LevelGate(int startMarginDb, int stayMarginDb);

    // `suspected`: what the detector says. Levels in dBFS.
    bool isSpeech(float level, float noise, bool suspected, bool open);

    // Whether the utterance's latest speech was clearly softer than its loudest.
    bool hasSunk() const;

    void reset();

  private:
    const int startMarginDb_;
    const int stayMarginDb_;
    float loudest_ = kFloorDbfs;  // of the utterance, fading after it
    float recent_ = kFloorDbfs;   // of its latest 100 ms of speech or so
};

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
