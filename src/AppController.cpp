// SPDX-License-Identifier: MIT
#include "AppController.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "AppConnector.h"
#include "DataBuilder.h"
#include "FrameCounter.h"
#include "log.h"

namespace {

// VAD frames that one pass reads at most. A pipe holds 64 KiB, that is 630 frames of 104 bytes, so
// whatever a living engine has ready fits in; but the pipe of a dead engine is readable for ever,
// and must not trap the loop.
constexpr unsigned int VAD_DRAIN_LIMIT = 640;

// Frames of one stream that wait to be lined up at most: ten minutes. An engine that answers each
// frame with one never comes near. One that reads and never answers lets the frames wait that it
// was given: the oldest are dropped. A dead one "delivers" empty frames without end: its newest are
// dropped, while reading goes on.
constexpr size_t BACKLOG_LIMIT = 60000;

// Whether an engine's frame answers one that it was given; START and END come on top.
bool isAnswer(int type) {
    return type == FRAME_DATA || type == FRAME_TOF || type == FRAME_EOF;
}

void warnOnce(bool& said, const char* text) {
    if (said)
        return;
    said = true;
    LOG_AT(logWARNING) << text;
}

// Takes the oldest frame of a queue; false, frame untouched, when it is empty.
bool takeFront(ReceiveQueue& queue, ReceiveData& frame) {
    if (queue.empty())
        return false;
    frame = std::move(queue.front());
    queue.pop_front();
    return true;
}

// T: the payload's value type.
template <typename T>
int typeOfFront(const ReceiveQueue& queue) {
    const ReceiveData& frame = queue.front();
    return FrameSyncBuilder<T>::headerOf(frame.data(), static_cast<unsigned int>(frame.size()));
}

// Moves the oldest frame of one queue to the back of another.
void passOn(ReceiveQueue& from, ReceiveQueue& to) {
    to.push_back(std::move(from.front()));
    from.pop_front();
}

}  // namespace

AppController::~AppController() {
    try {
        finalize();
    } catch (const std::exception& error) {
        LOG_AT(logERROR) << error.what();
    }
}

bool AppController::initialize(const std::string& app_dir, const std::string& mmse_setting,
                               const std::string& vad_setting) {
    app_dir_ = app_dir;
    mmse_setting_ = mmse_setting;
    vad_setting_ = vad_setting;
    frame_state_ = true;
    return true;
}

// The VAD engine starts first: when none can be started, it is the one that is named.
bool AppController::launch() {
    launchEngine(vad_connector_, "VAD", vad_setting_);
    launchEngine(mmse_connector_, "MMSE", mmse_setting_);
    open_flag_ = true;
    return true;
}

void AppController::launchEngine(AppConnectorPtr& connector, const char* name,
                                 const std::string& setting) {
    try {
        connector = std::make_shared<AppConnector>();
        connector->initialize();
        connector->launch(app_dir_, setting);
    } catch (const std::runtime_error& error) {
        throw AppControllerError(std::string(name) + " connector launch failed. " + error.what());
    }
}

void AppController::addReceiveData(const ReceiveData& data) {
    server_data_que_.push_back(data);
}

void AppController::addReceiveData(ReceiveData&& data) {
    server_data_que_.push_back(std::move(data));
}

bool AppController::process() {
    if (!isOpen())
        return false;
    try {
        writeMMSEData();
        readMMSEData();
        writeVADData();
        readVADData();
        createResultData();
    } catch (const AppConnectorError& error) {
        throw AppControllerError(error.what());
    } catch (...) {
        // Kept: an AppControllerError of createResultData loses its text here too.
        throw AppControllerError("Unknown Exception.");
    }
    return true;
}

void AppController::writeMMSEData() {
    if (server_data_que_.empty())
        return;
    const ReceiveData& frame = server_data_que_.front();
    mmse_connector_->write(frame.data(), static_cast<unsigned int>(frame.size()));
    passOn(server_data_que_, server_result_que_);
    if (server_result_que_.size() > BACKLOG_LIMIT)
        dropUnanswered();
}

// An input frame goes together with its answers, whether they are here already or come later; else
// all later frames would be paired with the wrong ones.
void AppController::dropUnanswered() {
    warnOnce(unanswered_, "an engine does not answer. the oldest frames are dropped.");
    server_result_que_.pop_front();
    if (mmse_result_que_.empty())
        ++mmse_overdue_;
    else
        mmse_result_que_.pop_front();
    ++vad_overdue_;
}

void AppController::readMMSEData() {
    static FrameCounter counter;  // of the whole process: engines come and go, the stream goes on
    mmse_frame_.resize(framesync::MMSE_FRAME_SIZE);
    std::fill(mmse_frame_.begin(), mmse_frame_.end(), '\0');
    if (mmse_connector_->read(mmse_frame_.data(), framesync::MMSE_FRAME_SIZE, 0) != 0)
        return;
    mmse_data_que_.push_back(mmse_frame_);
    const int header = counter.count(mmse_frame_);
    // Kept: START and END of the MMSE engine reach the VAD engine, but not the results: they answer
    // no input frame, and who speaks is for the VAD engine to say.
    if (isAnswer(header))
        keepMMSEAnswer();
    if (header == FRAME_EOF) {
        LOG_AT(logDEBUG) << "mmse:: " << counter.str();
        counter.reset();
    }
}

void AppController::keepMMSEAnswer() {
    if (mmse_overdue_ > 0)
        --mmse_overdue_;
    else if (mmse_result_que_.size() < BACKLOG_LIMIT)
        mmse_result_que_.push_back(std::move(mmse_frame_));
    else
        warnOnce(mmse_ahead_, "mmse engine runs ahead. its newest frames are dropped.");
}

void AppController::writeVADData() {
    if (mmse_data_que_.empty())
        return;
    ReceiveData& frame = mmse_data_que_.front();
    vad_connector_->write(frame.data(), static_cast<unsigned int>(frame.size()));
    mmse_frame_.swap(frame);  // for its memory
    mmse_data_que_.pop_front();
}

void AppController::readVADData() {
    // Kept: zeroed once for the whole drain; a short read leaves the frame before it in the rest.
    char frame[framesync::VAD_FRAME_SIZE] = {};
    for (unsigned int i = 0; i < VAD_DRAIN_LIMIT; ++i) {
        if (vad_connector_->read(frame, framesync::VAD_FRAME_SIZE, 0) != 0)
            return;
        if (vad_result_que_.size() < BACKLOG_LIMIT)
            keepVADFrame(frame);
        else
            warnOnce(vad_ahead_, "vad engine runs ahead. its newest frames are dropped.");
    }
}

void AppController::keepVADFrame(const char* frame) {
    vad_frame_.assign(frame, frame + framesync::VAD_FRAME_SIZE);
    vad_result_que_.push_back(std::move(vad_frame_));
}

void AppController::createResultData() {
    while (!mmse_result_que_.empty() && !vad_result_que_.empty() && !server_result_que_.empty()) {
        const int vad = typeOfFront<float>(vad_result_que_);
        if (vad_overdue_ > 0 && isAnswer(vad)) {
            vad_result_que_.pop_front();
            --vad_overdue_;
            continue;
        }
        const int mmse = typeOfFront<short>(mmse_result_que_);
        const int server = typeOfFront<short>(server_result_que_);
        if (dropAheadOfTOF(vad, mmse, server))
            continue;
        switch (vad) {
            case FRAME_DATA:
            case FRAME_TOF:
            case FRAME_EOF:
                passOn(mmse_result_que_, mmse_process_que_);
                passOn(server_result_que_, server_process_que_);
                break;
            case FRAME_START:
            case FRAME_END:
                // Kept: a marker takes no other frame with it than its own.
                addMarker(vad_result_que_.front());
                break;
            default:
                throw AppControllerError("Invalid header type : " + std::to_string(vad));
        }
        vad_frame_ = std::move(vad_result_que_.front());  // for its memory
        vad_result_que_.pop_front();
    }
}

// A stream that shows a TOF waits there until the other two show one as well. Drops one frame that
// stands ahead of it in another stream; false when the three fronts belong together.
// Kept: what stands ahead of a TOF in the other streams is lost, the VAD's START and END included.
bool AppController::dropAheadOfTOF(int vad, int mmse, int server) {
    if (vad != FRAME_TOF && mmse != FRAME_TOF && server != FRAME_TOF)
        return false;
    if (server != FRAME_TOF)
        server_result_que_.pop_front();
    else if (mmse != FRAME_TOF)
        mmse_result_que_.pop_front();
    else if (vad != FRAME_TOF)
        vad_result_que_.pop_front();
    else
        return false;
    return true;
}

// A START or END of the VAD engine goes into both results, as a full frame of silence, ahead of the
// frames it was found with.
void AppController::addMarker(const ReceiveData& vad_frame) {
    ReceiveData marker(framesync::MMSE_FRAME_SIZE);
    std::memcpy(marker.data(), vad_frame.data(), framesync::HEADER_SIZE);
    mmse_process_que_.push_back(marker);
    server_process_que_.push_back(std::move(marker));
}

bool AppController::getMMSEData(ReceiveData& data) {
    return takeFront(mmse_process_que_, data);
}

bool AppController::getServerData(ReceiveData& data) {
    return takeFront(server_process_que_, data);
}

void AppController::clearProcessData() {
    server_process_que_.clear();
    mmse_process_que_.clear();
}

void AppController::clearData() {
    mmse_data_que_.clear();
    vad_data_que_.clear();
    server_data_que_.clear();
    mmse_result_que_.clear();
    vad_result_que_.clear();
    server_result_que_.clear();
    mmse_process_que_.clear();
    server_process_que_.clear();
    mmse_overdue_ = vad_overdue_ = 0;
    unanswered_ = mmse_ahead_ = vad_ahead_ = false;
}

bool AppController::finalize() {
    // A connector that says false instead of throwing has not been met; the interface allows it.
    if (vad_connector_ && !vad_connector_->finalize())
        throw AppControllerError("VAD connector finalize failed.");
    if (mmse_connector_ && !mmse_connector_->finalize())
        throw AppControllerError("MMSE connector finalize failed.");
    clearData();
    open_flag_ = false;
    return true;
}

bool AppController::isOpen() {
    return open_flag_;
}

int AppController::getFrameSyncHeader(const char* data, uint32_t size) {
    return FrameSyncBuilder<short>::headerOf(data, size);
}
