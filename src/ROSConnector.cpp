// SPDX-License-Identifier: MIT
#include "ROSConnector.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <sstream>
#include <utility>

#include "Interrupt.h"
#include "log.h"

namespace {

constexpr unsigned READ_SIZE = 256;  // bytes of standard input taken in one pass

[[noreturn]] void fail(const char* text, int error_number) {
    throw ROSConnectorError(text + systemErrorText(error_number));
}

}  // namespace

bool ROSConnector::initialize() {
    play_sound_state_ = false;
    send_que_.clear();
    recv_data_.clear();
    return true;
}

void ROSConnector::addSendData(const ReceiveData& data) {
    send_que_.push_back(data);
}

void ROSConnector::addSendData(ReceiveData&& data) {
    send_que_.push_back(std::move(data));
}

void ROSConnector::process() {
    try {
        writeData();
        readData();
        processData();
    } catch (const ROSConnectorError&) {
        throw;
    } catch (...) {
        throw ROSConnectorError("Unknown Exception.");
    }
}

bool ROSConnector::getPlaySoundState() const {
    return play_sound_state_;
}

// A block leaves the queue only when it was written.
void ROSConnector::writeData() {
    while (!send_que_.empty()) {
        const ReceiveData& block = send_que_.front();
        write(block.data(), static_cast<unsigned>(block.size()));
        send_que_.pop_front();
    }
}

void ROSConnector::readData() {
    char buffer[READ_SIZE] = {};
    const int count = read(buffer, READ_SIZE, 0);
    if (count == -1)
        return;
    if (count < 1)
        throw ROSConnectorError("ROS connector read failed.");
    // Kept: the whole buffer is taken. The NUL bytes behind the last byte read are no white space
    // and stick to a word that the node did not end with some, which then means nothing.
    // Kept: a full read has no NUL bytes; a word that ends with it is obeyed as it stands.
    recv_data_.insert(recv_data_.end(), buffer, buffer + READ_SIZE);
}

void ROSConnector::processData() {
    if (recv_data_.empty())
        return;
    std::istringstream text(std::string(recv_data_.begin(), recv_data_.end()));
    for (std::string word; text >> word;)
        applyWord(word);
    // Kept: nothing is carried over; a word cut in two by a read is lost.
    recv_data_.clear();
}

void ROSConnector::applyWord(const std::string& word) {
    LOG_AT(logDEBUG) << "ros connector receive :" << word;
    if (word == "play_sound_on") {
        LOG_AT(logINFO) << "play sound state from ros node is on.";
        play_sound_state_ = true;
    } else if (word == "play_sound_off") {
        LOG_AT(logINFO) << "play sound state from ros node is off.";
        play_sound_state_ = false;
    }
}

int ROSConnector::write(const char* buf, unsigned size) {
    // Kept: a short write is a success; the rest of the block is never written.
    if (interruptible([&] { return ::write(fileno(stdout), buf, size); }) == -1)
        fail("Stdout write failed. error : ", errno);
    fflush(stdout);  // of what others may have printed there; the block went past its buffer
    return 0;
}

int ROSConnector::read(char* buf, unsigned size, unsigned timeout) {
    const int ready = waitReadable(fileno(stdin), timeout);
    if (ready == -1)
        // Kept: speaks of standard output although standard input is waited for.
        fail("Stdout select failed. error : ", errno);
    if (ready == 0)
        return -1;
    const ssize_t count = interruptible([&] { return ::read(fileno(stdin), buf, size); });
    if (count == -1)
        fail("Stdin read failed. error : ", errno);
    return static_cast<int>(count);
}
