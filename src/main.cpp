// SPDX-License-Identifier: MIT
// From the command line to one running Application. README.md tells what each message means.
// Kept: every end that the program chooses itself has status 0.
#include <signal.h>
#include <sys/stat.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include "Application.h"
#include "Interrupt.h"
#include "cmdline.h"
#include "log.h"

// The running application, through which the interrupt handler reaches it; empty until main has
// created it.
ApplicationPtr app;

// SIGINT: stops the engines and ends the process, from inside the signal. Before the application
// exists, an interrupt has no effect.
void handler(int signal_number) {
    if (!app)
        return;
    if (!Interrupt::mayAct()) {
        Interrupt::leaveToNextWait(signal_number);
        return;
    }
    app->finalize();
    exit(0);
}

namespace {

using LogLevelMap = std::map<std::string, int>;

void declareOptions(cmdline::parser& options) {
    options.add("help", 'h', "print help");
    // Kept: 172.0.0.1 is not the loopback address.
    options.add<std::string>("ipaddr", 'i', "voice server ip addr", false, "172.0.0.1");
    options.add<std::string>("mmse", 'm', "mmse setting file", false, "./Tolvanev.mmse.ini");
    options.add<std::string>("vad", 'v', "vad setting file", false, "./Tolvanev.vad.ini");
    // Kept: the spelling "Tolvane", and a program that is called a dir.
    options.add<std::string>("binary", 'b', "Tolvane binary dir", false, "./Tolvanev");
    options.add<std::string>("log_level", 'l', "loglevel (err, warn, info, debug)", false, "info");
    // Kept: both ports speak of a voice server; client_port is the sound client's, as is ipaddr.
    options.add<uint16_t>("client_port", 'c', "voice server client port", false, 5002);
    options.add<uint16_t>("server_port", 's', "voice server server port", false, 16001);
}

// True when the path leads to the program that is running.
bool isThisProgram(const std::string& path) {
    struct stat engine {};
    struct stat self {};
    return stat(path.c_str(), &engine) == 0 && stat("/proc/self/exe", &self) == 0 &&
           engine.st_dev == self.st_dev && engine.st_ino == self.st_ino;
}

}  // namespace

int main(int argc, char** argv) {
    const LogLevelMap log_map = {
        {"err", logERROR}, {"warn", logWARNING}, {"info", logINFO}, {"debug", logDEBUG}};

    cmdline::parser options;
    declareOptions(options);
    if (!options.parse(argc, argv) || options.exist("help")) {
        std::cerr << options.error_full() << options.usage();
        exit(0);
    }
    const auto ip_addr = options.get<std::string>("ipaddr");
    const auto mmse_setting = options.get<std::string>("mmse");
    const auto vad_setting = options.get<std::string>("vad");
    const auto binary_dir = options.get<std::string>("binary");
    const auto log_level = options.get<std::string>("log_level");
    const auto server_port = options.get<uint16_t>("server_port");
    const auto client_port = options.get<uint16_t>("client_port");

    const auto level = log_map.find(log_level);
    if (level == log_map.end()) {
        std::cerr << "Invalid log level." << std::endl;
        exit(0);
    }
    FILELog::ReportingLevel() = static_cast<TLogLevel>(level->second);

    if (signal(SIGINT, handler) == SIG_ERR) {
        LOG_AT(logERROR) << "Signal handler register failed.";
        exit(0);
    }
    // The engine's default path is also what this program is called. A bridge that is its own
    // engine starts two bridges, each of which starts two more, without end.
    if (isThisProgram(binary_dir)) {
        std::cerr << "The engine " << binary_dir
                  << " is this program itself. Name the engine with --binary." << std::endl;
        exit(0);
    }

    try {
        app = std::make_shared<Application>();
        app->initialize(binary_dir, mmse_setting, vad_setting, ip_addr, client_port, server_port);
        app->run();
        app->finalize();
    } catch (...) {
        LOG_AT(logERROR) << "Terminate application.";
        if (app)
            app->finalize();
    }
    return 0;
}
