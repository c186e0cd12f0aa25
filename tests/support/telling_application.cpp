// SPDX-License-Identifier: MIT
// An application that tells what main gave it instead of running; linked into
// program_that_tells_its_options only.
#include <iostream>

#include "Application.h"
#include "log.h"

Application::~Application() = default;

bool Application::initialize(const std::string& app_dir, const std::string& mmse_setting,
                             const std::string& vad_setting, const std::string& server_ip,
                             uint16_t recv_port, uint16_t send_port) {
    std::cout << "engine " << app_dir << ", mmse " << mmse_setting << ", vad " << vad_setting
              << ", sound client " << server_ip << ":" << recv_port << ", voice server "
              << send_port << ", log " << FILELog::ToString(FILELog::ReportingLevel()) << "\n";
    return true;
}

bool Application::run() {
    return true;
}

bool Application::finalize() {
    return true;
}
