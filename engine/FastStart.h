// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_FASTSTART_H
#define TOLVANEV_ENGINE_FASTSTART_H

#include <array>
#include <cstddef>
#include <vector>

#include "BandPass.h"
#include "Frame.h"

namespace engine {

// Recognises noise in the first seconds of a stream: what stays at the same level for 200 ms in
// each of four bands. A voice hardly ever does. The MMSE stage shows it every data frame, and lets
// the suppressor hear the noise over and over; to learn it by itself would take two seconds.
class FastStart {
  public:
    static constexpr size_t FRAMES = 20;

    FastStart();

    enum class Noise {
        NONE,
        ALONE,         // from the beginning of the stream on, or softer than what was taken for it
        BEHIND_SPEECH  // in the first pause of a stream that began otherwise
    };

    // Shows the next input frame, and says whether the latest FRAMES are noise that was not known.
    Noise newNoise(const Samples& samples);

    // The latest FRAMES, oldest first.
    std::vector<Samples> noise() const;

    // A stream begins.
    void reset();

    // The noise of this stream is known otherwise.
    void stop() { age_ = LISTENING; }

  private:
    static constexpr size_t BANDS = 4;
    static constexpr size_t LISTENING = 300;  // frames, then the suppressor knows by itself

    static constexpr float LOUDEST = 20;  // dBFS, above everything

    struct Heard {
        Samples samples{};
        std::array<double, BANDS> energy{};
    };

    void hear(const Samples& samples);
    bool isStill() const;
    float meanLevel() const;
    const Heard& at(size_t index) const { return latest_[(age_ + index) % FRAMES]; }

    std::array<BandPass, BANDS> filters_;
    std::array<Heard, FRAMES> latest_;  // a ring
    size_t age_ = 0;                    // frames
    size_t sounding_ = 0;               // frames since the latest one of silence
    float known_ = LOUDEST;             // level of the noise that was recognised, dBFS
};

}  // namespace engine

#endif
