// SPDX-License-Identifier: MIT
#include "SoundClient.h"

#include "log.h"

SoundClient::SoundClient()
    : client_(std::make_shared<TCPClient>()),
      processor_(std::make_shared<SoundClientProcessor>()) {}

int SoundClient::initialize() {
    processor_->initialize();
    return 1;
}

int SoundClient::connect(const std::string& ip_addr, uint16_t port) {
    if (is_connect_)
        disconnect();
    if (client_->connect(ip_addr, port) != 0)
        throw SoundClientError("Sound client connect failed. IP:" + ip_addr +
                               " PORT:" + std::to_string(port));
    is_connect_ = true;
    return 0;
}

int SoundClient::disconnect() {
    // Kept: EPD is on again, connected or not.
    processor_->initialize();
    if (!is_connect_)
        return 0;
    if (client_->disconnect() != 0)
        throw SoundClientError("Sound client disconnect failed.");
    is_connect_ = false;
    return 0;
}

int SoundClient::read(char* data, uint32_t size, uint32_t timeout) {
    if (!data || size == 0)
        throw SoundClientError("Invalid argument.");
    const int count = client_->receive(data, size, timeout);
    if (count < 0)
        throw SoundClientError("Sound client read failed.");
    return count;
}

int SoundClient::write(const char* data, uint32_t size) {
    if (!data || size == 0)
        throw SoundClientError("Invalid argument.");
    const int count = client_->send(data, size);
    if (count < 0)
        throw SoundClientError("Sound client write failed.");
    return count;
}

void SoundClient::process() {
    try {
        char buffer[1024];
        const int count = read(buffer, sizeof(buffer), 0);
        if (count == 0)
            return;  // Kept: a sound client that has closed is not noticed.
        processor_->addReceiveData(ReceiveData(buffer, buffer + count));
        processor_->process();
    } catch (const SoundClientProcessorError& error) {
        throw SoundClientError(error.what());
    } catch (...) {
        // Kept: a failed read shows as this too, never as "Sound client read failed.".
        throw SoundClientError("Unknown Exception.");
    }
}

bool SoundClient::isConnect() {
    return is_connect_;
}

bool SoundClient::getEpdState() {
    return processor_->getEpdState();
}

void SoundClient::setPlaySoundState(bool state) {
    // Kept: the state last sent, for the whole process, whichever link sent it. It is never reset,
    // so a sound client that connects later learns of the next change only.
    static bool prev_state = false;
    if (state == prev_state)
        return;
    const std::string command = state ? "epdoff\n\n" : "epdon\n\n";
    // Kept: set before the write, so a command that could not be sent is not sent again.
    prev_state = state;
    LOG_AT(logDEBUG) << "send epd state to sound client. :" << command;
    write(command.data(), static_cast<uint32_t>(command.size()));
}
