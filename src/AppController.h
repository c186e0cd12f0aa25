// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_APPCONTROLLER_H
#define TOLVANEV_APPCONTROLLER_H

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>

#include "AppConnectorInterface.h"
#include "common.h"

// what() is "[AppcontrollerError] " and the message.
// Kept: the tag has a lower-case c.
class AppControllerError : public std::runtime_error {
  public:
    explicit AppControllerError(const std::string& message)
        : std::runtime_error("[AppcontrollerError] " + message) {}
};

// Drives the two engines: input frames go to the noise-suppression (MMSE) engine, its output to
// the voice activity (VAD) engine. Then it lines up three streams frame by frame, MMSE output, VAD
// output and input, into two: noise-suppressed frames and input frames, both with the VAD's
// start and end markers. Owned and called by MMSEAppController.
//
// "Server" in a name is the input, as it came from the voice server, all the way to the ROS node;
// "MMSE" is what goes back to the voice server.
//
// process never waits for an engine's output; it does wait while an engine's input pipe is full.
// Of each stream at most ten minutes wait for the others; see docs/architecture.md for what goes.
// Failures of process and of starting an engine are AppControllerError; a connector's errors in
// finalize pass through. The alignment rules are a table in docs/architecture.md.
class AppController {
  public:
    AppController() = default;
    AppController(const AppController&) = delete;
    AppController& operator=(const AppController&) = delete;
    // Finalizes; a failure is logged, not thrown.
    virtual ~AppController();

    // app_dir: path of the engine executable. Starts nothing; true.
    bool initialize(const std::string& app_dir, const std::string& mmse_setting,
                    const std::string& vad_setting);
    // Starts both engines, VAD first; true.
    bool launch();
    // Hands in one input frame.
    void addReceiveData(const ReceiveData& data);
    void addReceiveData(ReceiveData&& data);
    // One pass: at most one frame into each engine and one out of the MMSE engine, and what waits
    // from the VAD engine. False, touching nothing, when not launched. When it throws, the queues
    // stay as the failed step left them.
    bool process();
    // Take the oldest finished frame; false, data untouched, when there is none.
    bool getMMSEData(ReceiveData& data);
    bool getServerData(ReceiveData& data);
    // Drops the finished frames.
    void clearProcessData();
    // Drops every frame in every queue.
    void clearData();
    // Stops both engines and drops every frame; true. Harmless when nothing was launched.
    bool finalize();

  protected:
    void writeMMSEData();
    void readMMSEData();
    void writeVADData();
    void readVADData();
    void createResultData();

    bool isOpen();
    int getFrameSyncHeader(const char* data, uint32_t size);

  private:
    void launchEngine(AppConnectorPtr& connector, const char* name, const std::string& setting);
    void dropUnanswered();
    void keepMMSEAnswer();
    void keepVADFrame(const char* frame);
    bool dropAheadOfTOF(int vad, int mmse, int server);
    void addMarker(const ReceiveData& vad_frame);

    AppConnectorPtr mmse_connector_;   // empty before the first launch
    AppConnectorPtr vad_connector_;    // empty before the first launch
    ReceiveQueue mmse_data_que_;       // MMSE output on its way to the VAD engine
    ReceiveQueue vad_data_que_;        // never filled
    ReceiveQueue server_data_que_;     // input on its way to the MMSE engine
    ReceiveQueue mmse_result_que_;     // MMSE output, waiting to be lined up
    ReceiveQueue vad_result_que_;      // VAD output, waiting to be lined up
    ReceiveQueue server_result_que_;   // input that the MMSE engine has, waiting to be lined up
    ReceiveQueue mmse_process_que_;    // finished noise-suppressed frames
    ReceiveQueue server_process_que_;  // finished input frames
    ReceiveData mmse_frame_;           // the frame that was read last; kept for its memory
    ReceiveData vad_frame_;            // the same
    std::string app_dir_;              // path of the engine executable
    std::string mmse_setting_;
    std::string vad_setting_;
    bool open_flag_ = false;    // both engines were launched
    bool frame_state_ = false;  // set by initialize, never read
    size_t mmse_overdue_ = 0;   // answers to dropped frames, still to come and to be dropped
    size_t vad_overdue_ = 0;
    bool unanswered_ = false;  // these three: said once that frames are being dropped
    bool mmse_ahead_ = false;
    bool vad_ahead_ = false;
};

#endif
