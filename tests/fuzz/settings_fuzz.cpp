// SPDX-License-Identifier: MIT
// Arbitrary settings files: each is either refused with a message that names file and line, or
// yields settings in their ranges.
#include <unistd.h>

#include <string>

#include "Settings.h"
#include "fuzz.h"

namespace {

// A file in memory, written anew for each input.
std::string fileWith(const uint8_t* data, size_t size) {
    static FILE* const file = tmpfile();
    REQUIRE(file && ftruncate(fileno(file), 0) == 0);
    rewind(file);
    REQUIRE(fwrite(data, 1, size, file) == size && fflush(file) == 0);
    return "/proc/self/fd/" + std::to_string(fileno(file));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = fileWith(data, size);
    try {
        const engine::Settings settings = engine::loadSettings(path);
        REQUIRE(settings.mmse.suppression_db >= -60 && settings.mmse.suppression_db <= 0);
        REQUIRE(settings.mmse.gentle_db >= -60 && settings.mmse.gentle_db <= 0);
        REQUIRE(settings.vad.onset_frames >= 1 && settings.vad.onset_frames <= 100);
        REQUIRE(settings.vad.long_hangover_frames >= 0 && settings.vad.long_hangover_frames <= 500);
        REQUIRE(settings.vad.start_margin_db >= 0 && settings.vad.start_margin_db <= 40);
    } catch (const engine::SettingsError& error) {
        REQUIRE(std::string(error.what()).starts_with(path + ":"));
    }
    return 0;
}
