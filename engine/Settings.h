// SPDX-License-Identifier: MIT
// What the settings file says. Ranges, units and effects are explained in mmse.ini and vad.ini.
#ifndef TOLVANEV_ENGINE_SETTINGS_H
#define TOLVANEV_ENGINE_SETTINGS_H

#include <stdexcept>
#include <string>

namespace engine {

enum class Role { MMSE, VAD };

struct MmseSettings {
    int suppression_db = -25;
    int gentle_db = -8;
    int priming_repeats = 10;
    int priming_gain_db = 6;
    int cold_repeats = 4;
};

struct VadSettings {
    int start_margin_db = 11;
    int stay_margin_db = 6;
    int onset_frames = 2;
    int hangover_frames = 18;
    int long_hangover_frames = 30;
    int early_frames = 60;
    int lookback_frames = 0;
};

struct Settings {
    Role role = Role::MMSE;
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
