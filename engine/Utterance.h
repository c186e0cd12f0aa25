// SPDX-License-Identifier: MIT
// Where speech begins and ends, given which frames are voiced.
#ifndef TOLVANEV_ENGINE_UTTERANCE_H
#define TOLVANEV_ENGINE_UTTERANCE_H

namespace engine {

// What stands directly before a frame.
enum class Mark { None, Start, End };

class Utterance {
  public:
    // Speech is declared at the `onsetFrames`th voiced frame in a row, and stays declared for
    // `hangoverFrames` unvoiced frames in a row; the next unvoiced frame is non-speech.
    Utterance(int onsetFrames, int hangoverFrames);

    Mark update(bool voiced);

    bool isOpen() const { return open_; }
    void reset();

  private:
    const int onsetFrames_;
    const int hangoverFrames_;
    bool open_ = false;
    int run_ = 0;  // frames in a row that speak for a change
};

}  // namespace engine

#endif
