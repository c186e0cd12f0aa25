// SPDX-License-Identifier: MIT
#include "Peers.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace {

constexpr int START_WAIT_MS = 120000;  // valgrind and strace start slowly
constexpr int RETRY_US = 2000;
constexpr int END_WAIT_S = 5;

void check(bool good, const char* what) {
    if (!good)
        throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A listening socket; port 0: one of the system's choice. -1 when the port is taken.
int listenOn(uint16_t& port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(fd != -1, "socket");
    sockaddr_in address = loopback(port);
    socklen_t size = sizeof(address);
    auto* const raw = reinterpret_cast<sockaddr*>(&address);
    if (bind(fd, raw, size) != 0 || listen(fd, 1) != 0) {
        close(fd);
        return -1;
    }
    check(getsockname(fd, raw, &size) == 0, "getsockname");
    port = ntohs(address.sin_port);
    return fd;
}

// A free port for the program. Below those that the system gives to connections: one of them could
// be given to a connection before the program listens, even to our own attempt to reach it. Drivers
// that run at the same time begin their search at different ports.
uint16_t freePort() {
    constexpr int FIRST = 20000;
    constexpr int COUNT = 10000;
    for (int i = 0; i < COUNT; ++i) {
        auto port = static_cast<uint16_t>(FIRST + (getpid() + i) % COUNT);
        if (const int fd = listenOn(port); fd != -1) {
            close(fd);
            return port;
        }
    }
    throw std::runtime_error("no free port");
}

void closeOnce(int& fd) {
    if (fd != -1)
        close(fd);
    fd = -1;
}

}  // namespace

Peers::Peers(const Program& program) {
    try {
        open(program);
    } catch (...) {
        end();  // a program that was started must not stay
        throw;
    }
}

Peers::~Peers() {
    end();
}

void Peers::open(const Program& program) {
    uint16_t sound_port = 0;
    const int listener = listenOn(sound_port);
    check(listener != -1, "listen");
    voice_port_ = freePort();
    start(program, sound_port);
    if (program.sound_client) {
        pollfd ready{listener, POLLIN, 0};
        check(poll(&ready, 1, START_WAIT_MS) == 1, "the program did not connect to us");
        sound_ = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        check(sound_ != -1, "accept");
    }
    close(listener);
    connectVoice();
}

void Peers::start(const Program& program, uint16_t sound_port) {
    std::vector<std::string> words = program.command;
    for (const std::string& word :
         {std::string("-i"), std::string("127.0.0.1"), std::string("-c"),
          std::to_string(sound_port), std::string("-s"), std::to_string(voice_port_),
          std::string("-b"), program.engine, std::string("-m"), program.mmse_setting,
          std::string("-v"), program.vad_setting})
        words.push_back(word);
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    int in[2];
    int out[2];
    check(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0, "pipe");
    pid_ = fork();
    check(pid_ != -1, "fork");
    if (pid_ == 0) {
        if (program.quiet)
            dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    input_ = in[1];
    results_ = out[0];
    fcntl(results_, F_SETFL, O_NONBLOCK);
}

void Peers::connectVoice() {
    const sockaddr_in address = loopback(voice_port_);
    for (int waited_us = 0; waited_us < START_WAIT_MS * 1000; waited_us += RETRY_US) {
        voice_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        check(voice_ != -1, "socket");
        if (connect(voice_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
            // A frame must leave at once and in one piece: the bridge takes what one read gives.
            const int on = 1;
            check(setsockopt(voice_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)) == 0, "nodelay");
            return;
        }
        closeOnce(voice_);
        check(waitpid(pid_, nullptr, WNOHANG) == 0, "the program has ended at once");
        usleep(RETRY_US);
    }
    throw std::runtime_error("the program does not accept us");
}

void Peers::closeInput() {
    closeOnce(input_);
}

bool Peers::waitForEnd(int seconds) {
    for (int waited_us = 0; waited_us < seconds * 1000000; waited_us += RETRY_US) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        usleep(RETRY_US);
    }
    return false;
}

void Peers::end() {
    closeInput();
    if (pid_ != -1)
        waitForEnd(END_WAIT_S);
    if (pid_ != -1) {
        kill(pid_, SIGTERM);
        waitForEnd(END_WAIT_S);
    }
    if (pid_ != -1)
        kill(pid_, SIGKILL);
    for (int* const fd : {&voice_, &sound_, &results_})
        closeOnce(*fd);
}
