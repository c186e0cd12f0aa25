// SPDX-License-Identifier: MIT
// Arbitrary bytes on standard input: after each pass the play-sound state is what the words in its
// 256 bytes, padding included, say; nothing is carried over to the next pass.
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "ROSConnector.h"
#include "fuzz.h"
#include "log.h"

namespace {

// The state after these bytes, by the plainest reading.
bool stateAfter(std::string bytes, bool state) {
    bytes.resize(256);
    std::istringstream words(bytes);
    for (std::string word; words >> word;) {
        if (word == "play_sound_on" || word == "play_sound_off")
            state = word == "play_sound_on";
    }
    return state;
}

// Puts a pipe in the place of standard input, once; returns its other end.
int inputPipe() {
    int ends[2];
    REQUIRE(pipe(ends) == 0 && dup2(ends[0], STDIN_FILENO) == STDIN_FILENO);
    return ends[1];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int pipe_end = inputPipe();
    FILELog::ReportingLevel() = logERROR;
    ROSConnector connector;
    connector.initialize();
    bool state = false;
    for (size_t at = 0; at < size; at += 256) {
        const std::string piece(reinterpret_cast<const char*>(data) + at,
                                std::min<size_t>(256, size - at));
        REQUIRE(write(pipe_end, piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()));
        connector.process();
        state = stateAfter(piece, state);
        REQUIRE(connector.getPlaySoundState() == state);
    }
    return 0;
}
