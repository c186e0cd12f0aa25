// SPDX-License-Identifier: MIT
// The cheapest engine that keeps the contract of docs/engine.md, so that a measurement shows the
// bridge and not the engine. Its argument, the settings file's name, is all it looks at: with "vad"
// in it, it answers 104 zero bytes with the frame's type, else the frame itself; with "utterance"
// in it, it says START once, ahead of its first answer. The file need not exist.
#include <unistd.h>

#include <cstddef>
#include <cstring>

#include "common.h"

namespace {

constexpr size_t FRAME = framesync::MMSE_FRAME_SIZE;
constexpr size_t VAD_FRAME = framesync::VAD_FRAME_SIZE;
constexpr size_t BATCH = 12;  // frames a read: 3,888 bytes, which a pipe still moves in one piece

char input[BATCH * FRAME];
char output[(BATCH + 1) * VAD_FRAME];

bool send(const char* bytes, size_t size) {
    return write(STDOUT_FILENO, bytes, size) == static_cast<ssize_t>(size);
}

}  // namespace

int main(int argc, char** argv) {
    const char* const setting = argc > 1 ? argv[1] : "";
    const bool vad = std::strstr(setting, "vad") != nullptr;
    bool say_start = vad && std::strstr(setting, "utterance") != nullptr;

    for (ssize_t count; (count = read(STDIN_FILENO, input, sizeof(input))) > 0;) {
        const auto size = static_cast<size_t>(count);
        if (!vad) {
            if (!send(input, size))
                return 1;
            continue;
        }
        char* out = output;
        if (say_start) {
            *out = FRAME_START;  // the rest of the output is zero for good
            out += VAD_FRAME;
        }
        for (size_t at = 0; at + FRAME <= size; at += FRAME, out += VAD_FRAME)
            std::memcpy(out, input + at, framesync::HEADER_SIZE);
        if (!send(output, static_cast<size_t>(out - output)))
            return 1;
        say_start = false;
    }
    return 0;
}
