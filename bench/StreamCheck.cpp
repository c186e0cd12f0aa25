// SPDX-License-Identifier: MIT
#include "StreamCheck.h"

namespace {

constexpr size_t BLOCKS = app_controller::NOISE_QUE_SIZE - 1;  // that an average uses

}  // namespace

bool RenewalModel::watch(const BenchFrame& frame) {
    ++watched_;
    if (frame.type == FRAME_DATA) {
        ++plain_;
        if (state_ != FRAME_START)
            block_[block_size_++] = frame;
    } else {
        plain_ = 0;
        state_ = frame.type;
    }
    if (block_size_ == FRAMES) {
        blocks_.push_back(block_);
        block_size_ = 0;
        if (blocks_.size() > BLOCKS)
            blocks_.pop_front();
    }
    const bool due = watched_ % app_controller::NOISE_MODEL_RENEW_FREQ == 0 &&
                     state_ != FRAME_START && plain_ >= FRAMES;
    if (due)
        renewals_.push_back(average());
    return due;
}

const RenewalModel::Noise* RenewalModel::noise(size_t renewal) const {
    return renewal < renewals_.size() ? &renewals_[renewal] : nullptr;
}

// Division rounds down, as the bridge's does over one, two or four blocks; and before the first
// renewal there have been at least four.
RenewalModel::Noise RenewalModel::average() const {
    Noise noise;
    for (size_t i = 0; i < FRAMES; ++i) {
        for (size_t k = 0; k < SAMPLES; ++k) {
            int sum = 0;
            for (const Noise& block : blocks_)
                sum += block[i].samples[k];
            noise[i].samples[k] = static_cast<int16_t>(sum >> 2);
        }
    }
    return noise;
}

void StreamCheck::take(const BenchFrame& frame) {
    const bool due = renewal_due_;
    renewal_due_ = watching_ && model_.watch(frame);
    const bool renewal = frame.type == FRAME_EOF;
    if (!accept(frame) || (watching_ && due != renewal))
        ++wrong_;
}

bool StreamCheck::accept(const BenchFrame& frame) {
    if (expected_ == NOISE)
        return acceptNoise(frame);
    if (expected_ == TOF) {
        ++noise_;
        expected_ = NOISE;
        noise_seen_ = 0;
        return frame.type == FRAME_TOF && silent(frame);
    }
    switch (frame.type) {
        case FRAME_DATA:
            return acceptLive(frame);
        case FRAME_START:
        case FRAME_END:
            ++markers_;
            return silent(frame);
        case FRAME_EOF:
            ++noise_;
            ++renewals_;
            expected_ = TOF;
            return silent(frame);
        default:
            return false;
    }
}

bool StreamCheck::acceptLive(const BenchFrame& frame) {
    const uint32_t number = numberOf(frame);
    if (number == 0) {
        ++silent_;
        return silent(frame);
    }
    const uint32_t missing = number - last_ - 1;
    ++live_;
    if (may_have_lost_)
        lost_ += missing;
    const bool in_order = number > last_ && (missing == 0 || may_have_lost_);
    may_have_lost_ = false;
    last_ = number;
    return in_order && frame == numbered(number);
}

bool StreamCheck::acceptNoise(const BenchFrame& frame) {
    const RenewalModel::Noise* const noise = model_.noise(renewals_ - 1);
    const bool same = noise && frame == (*noise)[noise_seen_];
    ++noise_;
    if (++noise_seen_ == RenewalModel::FRAMES) {
        expected_ = ANY;
        may_have_lost_ = true;
    }
    return same;
}
