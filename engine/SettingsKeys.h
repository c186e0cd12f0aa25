// SPDX-License-Identifier: MIT
// The keys of the settings file: where they belong, what they may hold, what they set.
#ifndef TOLVANEV_ENGINE_SETTINGSKEYS_H
#define TOLVANEV_ENGINE_SETTINGSKEYS_H

#include <string>

#include "Settings.h"

namespace engine {

bool isSection(const std::string& section);

// Returns what is wrong, in words; nothing if the value was good and is set.
std::string setKey(Settings& settings, const std::string& section, const std::string& key,
                   const std::string& value);

}  // namespace engine

#endif
