// SPDX-License-Identifier: MIT
#include "VoiceServer.h"

VoiceServer::VoiceServer() : data_connector_(std::make_shared<TCPServer>()) {}

int VoiceServer::initialize() {
    return 1;
}

int VoiceServer::connect(uint16_t send_port) {
    disconnect();
    if (data_connector_->connect(send_port) != 0)
        throw VoiceServerError("Data connector connect failed. PORT:" + std::to_string(send_port));
    is_connect_ = true;
    return 0;
}

int VoiceServer::disconnect() {
    if (!is_connect_)
        return 0;
    if (data_connector_->disconnect() != 0)
        throw VoiceServerError("Data connector disconnect failed.");
    is_connect_ = false;
    return 0;
}

int VoiceServer::read(char* data, uint32_t size, uint32_t timeout) {
    if (!data || size == 0)
        throw VoiceServerError("Invalid argument.");
    const int count = data_connector_->receive(data, size, timeout);
    if (count < 0)
        throw VoiceServerError("Data connector read failed.");
    // Kept: 0 at once, each time, when the voice server has closed its side: passes of silence
    // without a pause.
    return count;
}

int VoiceServer::write(const char* data, uint32_t size) {
    if (!data || size == 0)
        throw VoiceServerError("Invalid argument.");
    const int count = data_connector_->send(data, size);
    if (count < 0)
        throw VoiceServerError("Data connector write failed.");
    // Kept: a short write is only told; the rest of the frame is never sent.
    return count;
}

bool VoiceServer::isConnect() {
    return is_connect_;
}
