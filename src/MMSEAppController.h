// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_MMSEAPPCONTROLLER_H
#define TOLVANEV_MMSEAPPCONTROLLER_H

#include <cstdint>
#include <memory>
#include <string>

#include "AppController.h"
#include "common.h"

// The stream in front of the engines, as the main loop sees it. Owned by Application; owns the
// engine controller and adds to it a delay line of nine frames for the input, a watch on the frames
// that go to the ROS node, and the noise model.
//
// The watch follows the utterance and gathers audio outside of it as background noise. At every
// 500th watched frame, if the stream is quiet, both engines are restarted and primed;
// docs/architecture.md shows call by call what goes into the delay line and what comes out.
//
// Waits only where the engine controller does, and in a renewal for the old engines to end.
// Failures are AppControllerError, those of the engine controller included. A connector's errors in
// finalize and in a renewal pass through, and so does what a frame of a wrong size makes the
// builder throw.
class MMSEAppController {
  public:
    MMSEAppController();
    MMSEAppController(const MMSEAppController&) = delete;
    MMSEAppController& operator=(const MMSEAppController&) = delete;
    virtual ~MMSEAppController() = default;

    // Arguments as AppController::initialize. Starts nothing; true.
    // Kept: frames in the delay line survive.
    bool initialize(const std::string& app_dir, const std::string& mmse_setting,
                    const std::string& vad_setting);
    bool launch();  // true
    // Puts one frame into the delay line; hands on the one that came nine calls earlier.
    void addReceiveData(const ReceiveData& data);
    void addReceiveData(ReceiveData&& data);
    bool process();  // true
    // Take the oldest finished frame; false, data untouched, when there is none. Server frames are
    // watched on the way: a renewal can happen inside this call.
    bool getMMSEData(ReceiveData& data);
    bool getServerData(ReceiveData& data);
    // Drops the finished frames, unwatched.
    void clearProcessData();
    // Drops every frame in the engine controller, the noise model and the state of the watch.
    // Kept: frames in the delay line survive and are handed on by the next calls.
    void clearData();
    bool finalize();  // true

  protected:
    void addVADData(const ReceiveData& data);
    void addSendData(const ReceiveData& data);
    bool checkBufferFrame();
    ReceiveData createNullFrame(int header);

    void addNoiseData(const ReceiveData& data);
    ReceiveQueue createAverageNoise();
    void renewNoiseModel();

  private:
    using AppControllerPtr = std::shared_ptr<AppController>;

    void forwardDelayed();
    void clearWatch();

    uint32_t frame_count_ = 0;  // frames watched since initialize or clearData
    AppControllerPtr app_;
    NoiseQueue noise_que_;      // finished noise blocks; only the newest four are ever used
    ReceiveQueue send_buffer_;  // the last ten frames watched, of every type
    ReceiveQueue noise_tmp_;    // the noise block in the making, fewer than ten frames
    uint32_t header_state_ = FRAME_TOF;  // type of the last START, END, TOF or EOF watched
    ReceiveQueue send_que_;  // the delay line: nine frames, twelve right after a renewal
};

#endif
