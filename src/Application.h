// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_APPLICATION_H
#define TOLVANEV_APPLICATION_H

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "DataBuilder.h"
#include "MMSEAppController.h"
#include "ROSConnector.h"
#include "SoundClient.h"
#include "VoiceServer.h"

// The bridge: owns the four components and drives them from one loop on the main thread. Owned by
// main. run waits at most 100 ms a pass for the voice server, and 5 s between two attempts to
// connect; the components say what else they may wait for.
//
// Which failure does what: a lost voice server or sound client ends run normally, everything else
// ends it by exception. The operators' messages go to standard error without a time stamp.
class Application {
  public:
    Application() = default;
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    virtual ~Application();  // finalizes

    // app_dir: path of the engine executable; server_ip, recv_port: where the sound client listens;
    // send_port: where we listen for the voice server. Creates the components and starts nothing;
    // true.
    bool initialize(const std::string& app_dir, const std::string& mmse_setting,
                    const std::string& vad_setting, const std::string& server_ip,
                    uint16_t recv_port, uint16_t send_port);
    // Launches the engines, connects both peers, and moves frames until one of them is lost; true.
    bool run();
    // Stops the engines and disconnects the voice server; true. Harmless when repeated, and at any
    // stage of initialize.
    bool finalize();

  private:
    using AppControllerPtr = std::shared_ptr<MMSEAppController>;

    void launchEngines();
    void connectPeers();
    void readInputFrame();
    void returnCleanedFrames();
    void forwardResults();
    bool endOnLostPeer(const std::exception& error);

    AppControllerPtr app_controller_;
    VoiceServerPtr voice_server_;
    SoundClientPtr sound_client_;
    ROSConnectorPtr ros_connector_;
    std::string app_dir_;  // never written, nor are the next two: the controller keeps the paths
    std::string mmse_setting_;
    std::string vad_setting_;
    std::string server_ip_;            // of the sound client, dotted quad
    uint16_t recv_port_ = 0;           // of the sound client
    uint16_t send_port_ = 0;           // on which the voice server is accepted
    ReceiveData frame_;                // the frame in hand; kept for its memory
    FrameSyncBuilder<short> builder_;  // turns frames for the voice server; kept for its memory
};

using ApplicationPtr = std::shared_ptr<Application>;

#endif
