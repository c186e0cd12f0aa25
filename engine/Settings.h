// SPDX-License-Identifier: MIT
// What the settings file says. Ranges, units and effects are explained in mmse.ini and vad.ini.
#ifndef TOLVANEV_ENGINE_SETTINGS_H
#define TOLVANEV_ENGINE_SETTINGS_H

#include <stdexcept>
#include <string>

namespace engine {

enum class Role { Mmse, Vad };

struct MmseSettings {
    int suppressionDb = -25;
    int primingRepeats = 10;
    int primingGainDb = 6;
};

struct VadSettings {
    int startMarginDb = 10;
    int stayMarginDb = 5;
    int onsetFrames = 2;
    int hangoverFrames = 10;
    int longHangoverFrames = 18;
    int earlyFrames = 60;
    int lookbackFrames = 0;
};

struct Settings {
    Role role = Role::Mmse;
    MmseSettings mmse;
    VadSettings vad;
};

// what() is a complete message: FILE:LINE: key 'KEY': what is wrong.
class SettingsError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws SettingsError about the first thing that is wrong in the file.
Settings loadSettings(const std::string& path);

const char* nameOf(Role role);

}  // namespace engine

#endif
