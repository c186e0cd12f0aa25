// SPDX-License-Identifier: MIT
#include "MmseStage.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace engine {

namespace {

void amplify(Samples& samples, int gain_db) {
    const double gain = std::pow(10.0, gain_db / 20.0);
    for (int16_t& sample : samples)
        sample = static_cast<int16_t>(std::clamp(gain * sample, -32768.0, 32767.0));
}

}  // namespace

MmseStage::MmseStage(const MmseSettings& settings, Sink sink)
    : priming_repeats_(settings.priming_repeats),
      priming_gain_db_(settings.priming_gain_db),
      cold_repeats_(settings.cold_repeats),
      sink_(std::move(sink)),
      suppressor_(settings.suppression_db, settings.gentle_db) {}

void MmseStage::accept(const AudioFrame& frame) {
    AudioFrame out = frame;
    switch (frame.type) {
        case FRAME_DATA:
            suppressor_.process(out.samples);
            break;
        case FRAME_TOF:
            suppressor_.reset();
            fast_start_.reset();
            break;
        case FRAME_EOF:
            break;
        default:
            // The sender keeps this frame and wants a partner for it; only data, TOF and EOF count
            // as one. With any other type the streams would slip until the next TOF.
            out.type = FRAME_DATA;
    }
    sink_(bytesOf(out));
    if (priming_.isComplete(frame))
        settle();
    else if (frame.type == FRAME_DATA && cold_repeats_ > 0)
        listen(frame.samples);
}

// A new suppressor needs seconds to learn the noise. Hearing the ten frames over and over takes it
// there at once, provided that they are as loud as the live noise; an average of several recordings
// is quieter. The output is of no use: each frame has been answered already.
void MmseStage::settle() {
    for (int repeat = 0; repeat < priming_repeats_; ++repeat) {
        for (Samples samples : priming_.noise()) {
            amplify(samples, priming_gain_db_);
            suppressor_.process(samples);
        }
    }
    if (priming_repeats_ > 0)
        suppressor_.settled();
    priming_.forget();
    fast_start_.stop();
}

// After speech the noise is heard half as often, and has to prove that it is steady first: what was
// lost of the speech that follows right away would be more than if the suppressor had learned by
// itself.
void MmseStage::listen(const Samples& samples) {
    switch (fast_start_.newNoise(samples)) {
        case FastStart::Noise::NONE:
            return;
        case FastStart::Noise::ALONE:
            beginWithNoise(cold_repeats_);
            if (cold_repeats_ > 0)
                suppressor_.settled();
            return;
        case FastStart::Noise::BEHIND_SPEECH:
            return beginWithNoise(cold_repeats_ / 2);
    }
}

// As if the stream had begun with this noise and nothing else. The last frame that is heard again
// is the latest one, so that what comes next joins it without a gap.
void MmseStage::beginWithNoise(int repeats) {
    suppressor_.reset();
    const std::vector<Samples> noise = fast_start_.noise();
    for (int repeat = 0; repeat < repeats; ++repeat)
        for (Samples samples : noise)
            suppressor_.process(samples);
}

}  // namespace engine
