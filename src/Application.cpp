// SPDX-License-Identifier: MIT
#include "Application.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "Interrupt.h"

using framesync::VOICE_SERVER_FRAME_SIZE;

namespace {

constexpr uint32_t READ_TIMEOUT_MS = 100;  // of the voice server, in each pass
constexpr unsigned int RECONNECT_PAUSE_S = 5;

// A message for the operators. Waits while nobody reads standard error and its pipe is full.
void tell(const std::string& text) {
    interruptible([&] { std::cerr << text << std::flush; });
}

}  // namespace

Application::~Application() {
    finalize();
}

bool Application::initialize(const std::string& app_dir, const std::string& mmse_setting,
                             const std::string& vad_setting, const std::string& server_ip,
                             uint16_t recv_port, uint16_t send_port) {
    recv_port_ = recv_port;
    send_port_ = send_port;
    server_ip_ = server_ip;
    app_controller_ = std::make_shared<MMSEAppController>();
    app_controller_->initialize(app_dir, mmse_setting, vad_setting);
    voice_server_ = std::make_shared<VoiceServer>();
    voice_server_->initialize();
    sound_client_ = std::make_shared<SoundClient>();
    sound_client_->initialize();
    ros_connector_ = std::make_shared<ROSConnector>();
    ros_connector_->initialize();
    return true;
}

bool Application::run() {
    launchEngines();
    while (true) {
        connectPeers();
        frame_.resize(VOICE_SERVER_FRAME_SIZE);  // the last one was handed on
        try {
            readInputFrame();
            app_controller_->addReceiveData(std::move(frame_));
            app_controller_->process();
            sound_client_->process();
            returnCleanedFrames();
            forwardResults();
            ros_connector_->process();
            sound_client_->setPlaySoundState(ros_connector_->getPlaySoundState());
        } catch (const VoiceServerError& error) {
            return endOnLostPeer(error);
        } catch (const SoundClientError& error) {
            return endOnLostPeer(error);
        } catch (const AppControllerError& error) {
            tell(error.what() + std::string("\n"));
            throw;
        } catch (const ROSConnectorError& error) {
            tell(error.what() + std::string("\n"));
            throw;
        } catch (...) {
            tell("[FATAL] Unknown Exception\n");
            throw;
        }
    }
}

void Application::launchEngines() {
    try {
        app_controller_->launch();
    } catch (const AppControllerError& error) {
        app_controller_->finalize();
        tell("[FATAL] " + std::string(error.what()) + "\n");
        throw;
    }
}

// Returns when both peers are there, however long that takes.
void Application::connectPeers() {
    while (!voice_server_->isConnect() || !sound_client_->isConnect()) {
        try {
            tell("Connecting to Server ... ");
            sound_client_->connect(server_ip_, recv_port_);
            voice_server_->connect(send_port_);
            tell("[Connected]\n");
        } catch (const std::runtime_error&) {
            // The links have logged the cause, but that of a failed accept; the peers may simply
            // not be up yet.
            voice_server_->disconnect();
            sound_client_->disconnect();
            interruptible([] { return sleep(RECONNECT_PAUSE_S); });
        }
    }
}

// Kept: what does not come is silence. A part of a frame is filled up with zeros, and a pass
// without data moves a frame of zeros.
void Application::readInputFrame() {
    const int count = voice_server_->read(frame_.data(), VOICE_SERVER_FRAME_SIZE, READ_TIMEOUT_MS);
    std::fill(frame_.begin() + count, frame_.end(), '\0');
}

// The voice server takes its frames back with every number most significant byte first.
void Application::returnCleanedFrames() {
    while (app_controller_->getMMSEData(frame_)) {
        builder_.build(frame_.data(), static_cast<unsigned int>(frame_.size()), binary::LITTLE,
                       binary::BIG);
        const ByteArray& bytes = builder_.getBuildData();
        voice_server_->write(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
}

// The ROS node gets the frames while it listens: EPD is on, and it plays no sound of its own. The
// controller watches each frame that it gives out here; one of them may end in a renewal of the
// noise model, with both engines restarted.
void Application::forwardResults() {
    if (!sound_client_->getEpdState() || ros_connector_->getPlaySoundState()) {
        app_controller_->clearProcessData();
        return;
    }
    ReceiveData result;  // of its own, so that frame_ keeps its memory
    while (app_controller_->getServerData(result))
        ros_connector_->addSendData(std::move(result));
}

// Kept: the bridge does not reconnect; whatever started it starts it again.
bool Application::endOnLostPeer(const std::exception& error) {
    tell(error.what() + std::string("\n"));
    voice_server_->disconnect();
    sound_client_->disconnect();
    app_controller_->clearData();
    return true;
}

bool Application::finalize() {
    if (app_controller_)
        app_controller_->finalize();
    if (voice_server_)
        voice_server_->disconnect();
    return true;
}
