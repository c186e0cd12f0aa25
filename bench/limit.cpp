// SPDX-License-Identifier: MIT
// The limit that the bridge is measured by: the thirteen system calls of its pass and nothing else.
// Bytes are read where they are written from: no parsing, no byte swap, no delay line, no gate, no
// renewal. It takes the bridge's short options and serves the same peers.
//
// A pass: select and read (voice server), write, select, read (MMSE engine), write, select, read,
// select (VAD engine), select (sound client), write (voice server), write (standard output),
// select (standard input).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>

#include "common.h"

namespace {

constexpr size_t FRAME = framesync::MMSE_FRAME_SIZE;
constexpr size_t VAD_FRAME = framesync::VAD_FRAME_SIZE;
constexpr suseconds_t VOICE_WAIT_US = 100000;  // as the bridge
constexpr size_t RING = 1024;                  // frames; more than the flood's largest window

struct Engine {
    int input = -1;
    int output = -1;
};

char received[RING][FRAME];  // as they came from the voice server
char cleaned[RING][FRAME];   // as they came from the MMSE engine
char vad_frame[VAD_FRAME];

[[noreturn]] void end() {
    _exit(0);
}

bool readable(int fd, suseconds_t wait_us) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval timeout{0, wait_us};
    return select(fd + 1, &set, nullptr, nullptr, &timeout) > 0;
}

Engine launch(const char* program, const char* setting) {
    int in[2];
    int out[2];
    if (pipe(in) != 0 || pipe(out) != 0)
        end();
    if (fork() == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        for (const int fd : {in[0], in[1], out[0], out[1]})
            close(fd);
        execl(program, program, setting, static_cast<char*>(nullptr));
        end();
    }
    close(in[0]);
    close(out[1]);
    return {in[1], out[0]};
}

sockaddr_in addressOf(const char* ip, const char* port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(atoi(port)));
    address.sin_addr.s_addr = inet_addr(ip);
    return address;
}

int acceptVoiceServer(const char* port) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    const sockaddr_in address = addressOf("127.0.0.1", port);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, 1) != 0)
        end();
    return accept(listener, nullptr, nullptr);
}

int connectSoundClient(const char* ip, const char* port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = addressOf(ip, port);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        end();
    return fd;
}

// A short count or an error ends the program: its peers never cause one while they run.
void readAll(int fd, char* bytes, size_t size) {
    if (read(fd, bytes, size) != static_cast<ssize_t>(size))
        end();
}

void writeAll(int fd, const char* bytes, size_t size) {
    if (write(fd, bytes, size) != static_cast<ssize_t>(size))
        end();
}

[[noreturn]] void run(int voice, int sound, Engine mmse, Engine vad) {
    size_t heard = 0;     // frames from the voice server
    size_t clean = 0;     // frames from the MMSE engine
    size_t finished = 0;  // frames from the VAD engine
    while (true) {
        if (readable(voice, VOICE_WAIT_US)) {
            readAll(voice, received[heard % RING], FRAME);
            writeAll(mmse.input, received[heard++ % RING], FRAME);
        }
        if (readable(mmse.output, 0)) {
            readAll(mmse.output, cleaned[clean % RING], FRAME);
            writeAll(vad.input, cleaned[clean++ % RING], FRAME);
        }
        const size_t before = finished;
        for (; readable(vad.output, 0); ++finished)
            readAll(vad.output, vad_frame, VAD_FRAME);
        if (readable(sound, 0))
            end();  // the sound client never says anything
        for (size_t i = before; i < finished; ++i)
            writeAll(voice, cleaned[i % RING], FRAME);
        for (size_t i = before; i < finished; ++i)
            writeAll(STDOUT_FILENO, received[i % RING], FRAME);
        if (readable(STDIN_FILENO, 0))
            end();  // closed
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto value = [&](char option) {
        for (int i = 1; i + 1 < argc; i += 2) {
            if (argv[i][0] == '-' && argv[i][1] == option)
                return argv[i + 1];
        }
        end();
    };
    const Engine vad = launch(value('b'), value('v'));
    const Engine mmse = launch(value('b'), value('m'));
    const int sound = connectSoundClient(value('i'), value('c'));
    run(acceptVoiceServer(value('s')), sound, mmse, vad);
}
