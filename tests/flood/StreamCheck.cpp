// SPDX-License-Identifier: MIT
#include "StreamCheck.h"

#include <stdexcept>

namespace {

constexpr size_t BLOCKS = app_controller::NOISE_QUE_SIZE - 1;  // that an average uses
constexpr int64_t NOISE_SEEN = -100;

bool silent(const NumberedFrame& frame) {
    return frame.samples == NumberedFrame{}.samples;
}

// A number, 0 for silence, or minus the type.
int64_t nameOf(const NumberedFrame& frame) {
    return frame.type == FRAME_DATA ? int64_t{numberOf(frame)} : -frame.type;
}

}  // namespace

bool RenewalModel::watch(const NumberedFrame& frame) {
    ++watched_;
    if (frame.type == FRAME_DATA) {
        ++plain_;
        if (state_ != FRAME_START)
            block_[block_size_++] = frame;
    } else {
        plain_ = 0;
        state_ = frame.type;
    }
    if (block_size_ == block_.size()) {
        blocks_.push_back(block_);
        block_size_ = 0;
        if (blocks_.size() > BLOCKS)
            blocks_.pop_front();
    }
    const bool due = watched_ % app_controller::NOISE_MODEL_RENEW_FREQ == 0 &&
                     state_ != FRAME_START && plain_ >= block_.size();
    if (due)
        renewals_.push_back(average());
    return due;
}

const RenewalModel::Noise* RenewalModel::noise(size_t renewal) const {
    return renewal < renewals_.size() ? &renewals_[renewal] : nullptr;
}

// Rounded down. Before the first renewal there have been more than four blocks.
RenewalModel::Noise RenewalModel::average() const {
    Noise noise;
    for (size_t i = 0; i < noise.size(); ++i) {
        for (size_t k = 0; k < SAMPLES; ++k) {
            int sum = 0;
            for (const Noise& block : blocks_)
                sum += block[i].samples[k];
            noise[i].samples[k] = static_cast<int16_t>(sum >> 2);
        }
    }
    return noise;
}

void StreamCheck::take(const NumberedFrame& frame) {
    const bool due = renewal_due_;
    renewal_due_ = watching_ && model_.watch(frame);
    seen_.push_back(expected_ == NOISE ? NOISE_SEEN : nameOf(frame));
    if (watching_ && due != (frame.type == FRAME_EOF))
        refuse(due ? "a renewal" : "no renewal", nameOf(frame));
    if (!accept(frame))
        refuse("another frame behind " + std::to_string(last_), nameOf(frame));
}

void StreamCheck::finish(uint32_t sent) {
    if (last_ < sent && !may_have_lost_)
        refuse("more behind " + std::to_string(last_), 0);
    loseUpTo(sent + 1);
}

void StreamCheck::compare(StreamCheck& results, StreamCheck& returned) {
    while (!results.seen_.empty() && !returned.seen_.empty()) {
        const bool same = results.seen_.front() == returned.seen_.front();
        const bool renewal = results.seen_.front() == -FRAME_EOF;
        if (!same && !renewal)
            returned.refuse("as in the other stream " + std::to_string(results.seen_.front()),
                            returned.seen_.front());
        if (same)
            results.seen_.pop_front();
        returned.seen_.pop_front();
    }
}

bool StreamCheck::accept(const NumberedFrame& frame) {
    if (expected_ == NOISE)
        return acceptNoise(frame);
    if (expected_ == TOF) {
        ++counts_.noise;
        expected_ = NOISE;
        noise_seen_ = 0;
        return frame.type == FRAME_TOF && silent(frame);
    }
    switch (frame.type) {
        case FRAME_DATA:
            return acceptLive(frame);
        case FRAME_START:
        case FRAME_END:
            ++counts_.markers;
            speaking_ = !speaking_;
            return silent(frame) && speaking_ == (frame.type == FRAME_START);
        case FRAME_EOF:
            ++counts_.noise;
            ++counts_.renewals;
            expected_ = TOF;
            return silent(frame);
        default:
            return false;
    }
}

bool StreamCheck::acceptLive(const NumberedFrame& frame) {
    const uint32_t number = numberOf(frame);
    if (number == 0) {
        ++counts_.silent;
        return silent(frame);
    }
    if (number <= last_ || (number > last_ + 1 && !may_have_lost_) || frame != numbered(number))
        return false;
    ++counts_.live;
    loseUpTo(number);
    last_ = number;
    return true;
}

bool StreamCheck::acceptNoise(const NumberedFrame& frame) {
    const RenewalModel::Noise* const noise = model_.noise(counts_.renewals - 1);
    const bool same = noise && frame == (*noise)[noise_seen_];
    ++counts_.noise;
    if (++noise_seen_ == app_controller::NOISE_FRAME_SIZE) {
        expected_ = ANY;
        may_have_lost_ = true;
    }
    return same;
}

void StreamCheck::loseUpTo(uint32_t next) {
    if (may_have_lost_)
        counts_.lost.push_back({last_ + 1, next});
    may_have_lost_ = false;
}

void StreamCheck::refuse(const std::string& expected, int64_t came) const {
    throw std::runtime_error("in the " + std::string(name_) + " " + expected +
                             " was expected, not " + std::to_string(came));
}
