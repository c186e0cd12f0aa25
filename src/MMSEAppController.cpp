// SPDX-License-Identifier: MIT
#include "MMSEAppController.h"

#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "BinaryUtil.h"
#include "DataBuilder.h"
#include "log.h"

using app_controller::NOISE_FRAME_SIZE;
using app_controller::NOISE_MODEL_RENEW_FREQ;
using app_controller::NOISE_QUE_SIZE;

MMSEAppController::MMSEAppController() : app_(std::make_shared<AppController>()) {}

bool MMSEAppController::initialize(const std::string& app_dir, const std::string& mmse_setting,
                                   const std::string& vad_setting) {
    clearWatch();
    app_->initialize(app_dir, mmse_setting, vad_setting);
    return true;
}

bool MMSEAppController::launch() {
    app_->launch();
    return true;
}

void MMSEAppController::addReceiveData(const ReceiveData& data) {
    send_que_.push_back(data);
    forwardDelayed();
}

void MMSEAppController::addReceiveData(ReceiveData&& data) {
    send_que_.push_back(std::move(data));
    forwardDelayed();
}

void MMSEAppController::forwardDelayed() {
    while (send_que_.size() >= NOISE_FRAME_SIZE) {
        app_->addReceiveData(std::move(send_que_.front()));
        send_que_.pop_front();
    }
}

bool MMSEAppController::process() {
    app_->process();
    return true;
}

bool MMSEAppController::getMMSEData(ReceiveData& data) {
    return app_->getMMSEData(data);
}

bool MMSEAppController::getServerData(ReceiveData& data) {
    if (!app_->getServerData(data))
        return false;
    addVADData(data);
    return true;
}

void MMSEAppController::clearProcessData() {
    // Kept: these frames are neither watched nor counted; an END among them is missed.
    app_->clearProcessData();
}

void MMSEAppController::clearData() {
    app_->clearData();
    clearWatch();
}

bool MMSEAppController::finalize() {
    app_->finalize();
    return true;
}

void MMSEAppController::clearWatch() {
    frame_count_ = 0;
    noise_que_.clear();
    noise_tmp_.clear();
    send_buffer_.clear();
    header_state_ = FRAME_TOF;
}

void MMSEAppController::addVADData(const ReceiveData& data) {
    const auto header = static_cast<uint32_t>(
        FrameSyncBuilder<short>::headerOf(data.data(), static_cast<unsigned int>(data.size())));
    // Kept: an invalid frame counts as well.
    ++frame_count_;
    switch (header) {
        case FRAME_DATA:
            addSendData(data);
            if (header_state_ != FRAME_START)
                addNoiseData(data);
            break;
        case FRAME_START:
        case FRAME_END:
        case FRAME_TOF:
        case FRAME_EOF:
            LOG_AT(logDEBUG) << "operation header :" << header;
            addSendData(data);
            header_state_ = header;
            break;
        default:
            // Kept: negative types are shown unsigned, -1 as 4294967295.
            throw AppControllerError("Invalid header type : " + std::to_string(header));
    }
    // Kept: a 500th frame that does not find the stream quiet is not made up for.
    if (frame_count_ % NOISE_MODEL_RENEW_FREQ == 0 && header_state_ != FRAME_START &&
        checkBufferFrame()) {
        LOG_AT(logINFO) << "renew noize model.";  // Kept: the spelling "noize".
        renewNoiseModel();
    }
}

// Despite the name: nothing is sent from this buffer.
void MMSEAppController::addSendData(const ReceiveData& data) {
    ReceiveData frame;
    if (send_buffer_.size() == NOISE_FRAME_SIZE) {
        frame = std::move(send_buffer_.front());  // for its memory
        send_buffer_.pop_front();
    }
    frame = data;
    send_buffer_.push_back(std::move(frame));
}

// True when the last ten frames were all plain audio.
bool MMSEAppController::checkBufferFrame() {
    if (send_buffer_.size() < NOISE_FRAME_SIZE)
        return false;
    for (const ReceiveData& frame : send_buffer_) {
        if (binary::unpack<int>(frame.data()) != FRAME_DATA)
            return false;
    }
    return true;
}

ReceiveData MMSEAppController::createNullFrame(int header) {
    ReceiveData frame(framesync::MMSE_FRAME_SIZE);
    std::memcpy(frame.data(), &header, framesync::HEADER_SIZE);
    return frame;
}

void MMSEAppController::addNoiseData(const ReceiveData& data) {
    noise_tmp_.push_back(data);
    if (noise_tmp_.size() < NOISE_FRAME_SIZE)
        return;
    noise_que_.push_back(std::exchange(noise_tmp_, {}));
    // An average uses the newest four blocks. Older ones would only fill the memory of a stream
    // that finds no quiet moment for a renewal.
    while (noise_que_.size() >= NOISE_QUE_SIZE)
        noise_que_.pop_front();
}

// Ten frames of typical background.
// Kept: frame i is the mean of the i-th frames of the newest blocks, sample by sample, and not a
// mean over time.
ReceiveQueue MMSEAppController::createAverageNoise() {
    constexpr size_t SAMPLES = framesync::MMSE_DATA_SIZE / sizeof(short);
    std::array<std::array<int64_t, SAMPLES>, NOISE_FRAME_SIZE> sums{};
    for (const ReceiveQueue& block : noise_que_) {
        for (size_t frame_idx = 0; frame_idx < block.size(); ++frame_idx) {
            const ReceiveData& frame = block[frame_idx];
            FrameSyncBuilder<short> builder;
            builder.build(frame.data(), static_cast<unsigned int>(frame.size()), binary::LITTLE,
                          binary::LITTLE);
            const std::vector<short>& samples = builder.getData();
            if (frame_idx >= sums.size() || samples.size() > SAMPLES)
                throw std::out_of_range("vector::_M_range_check");
            for (size_t i = 0; i < samples.size(); ++i)
                sums[frame_idx][i] += samples[i];
        }
    }

    // Kept: the division is unsigned. A negative sum over one, two or four blocks only rounds down
    // instead of toward zero, but over three blocks it comes out as a large positive sample: -3
    // gives 21844.
    const uint64_t blocks = noise_que_.empty() ? 1 : noise_que_.size();
    ReceiveQueue noise;
    for (const auto& row : sums) {
        std::array<short, SAMPLES> means{};
        for (size_t i = 0; i < SAMPLES; ++i)
            means[i] =
                static_cast<short>(static_cast<uint16_t>(static_cast<uint64_t>(row[i]) / blocks));
        ReceiveData frame = binary::pack<int>(FRAME_DATA);
        const ByteArray payload = binary::pack<short>(means.data(), static_cast<int>(SAMPLES));
        frame.insert(frame.end(), payload.begin(), payload.end());
        noise.push_back(std::move(frame));
    }
    return noise;
}

// Kept: the live frames in the delay line, nine at most, are discarded; no engine ever sees them.
void MMSEAppController::renewNoiseModel() {
    // Kept: the spelling "bufffer".
    LOG_AT(logDEBUG) << "clear bufffer size:" << send_que_.size();
    send_que_.clear();
    send_que_.push_back(createNullFrame(FRAME_EOF));
    send_que_.push_back(createNullFrame(FRAME_TOF));
    for (ReceiveData& frame : createAverageNoise())
        send_que_.push_back(std::move(frame));
    app_->finalize();
    app_->clearData();
    app_->launch();
}
