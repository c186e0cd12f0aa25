// SPDX-License-Identifier: MIT
#include "SettingsKeys.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <vector>

#include "Frame.h"

namespace engine {

namespace {

using Setter = std::function<std::string(Settings&, const std::string&)>;

struct Key {
    std::string section;
    std::string name;
    Setter set;
};

struct Range {
    int low;
    int high;
    const char* unit;
    int step = 1;
};

std::string setNumber(int& target, const std::string& text, const Range& range) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    const bool isNumber = error == std::errc() && stop == end;
    if (!isNumber || number < range.low || number > range.high || number % range.step != 0) {
        std::string problem = "'" + text + "' is not a whole number from " +
                              std::to_string(range.low) + " to " + std::to_string(range.high) +
                              " " + range.unit;
        if (range.step != 1)
            problem += " in steps of " + std::to_string(range.step);
        return problem;
    }
    target = number;
    return {};
}

// Times are given in milliseconds and kept in frames.
std::string setFrames(int& target, const std::string& text, int low_ms, int high_ms) {
    int milliseconds = 0;
    std::string problem = setNumber(milliseconds, text, {low_ms, high_ms, "ms", FRAME_MS});
    if (problem.empty())
        target = milliseconds / FRAME_MS;
    return problem;
}

template <typename Enum>
std::string setChoice(Enum& target, const std::string& text,
                      const std::vector<std::pair<const char*, Enum>>& choices) {
    std::string names;
    for (const auto& [name, choice] : choices) {
        if (text == name) {
            target = choice;
            return {};
        }
        names.append(names.empty() ? "" : ", ").append(name);
    }
    return "'" + text + "' is none of " + names;
}

std::string setRole(Settings& settings, const std::string& text) {
    return setChoice<Role>(settings.role, text, {{"mmse", Role::MMSE}, {"vad", Role::VAD}});
}

const std::vector<Key>& keys() {
    static const std::vector<Key> table = {
        {"engine", "role", setRole},
        {"mmse", "suppression_db",
         [](Settings& settings, const std::string& text) {
             return setNumber(settings.mmse.suppression_db, text, {-60, 0, "dB"});
         }},
        {"mmse", "gentle_db",
         [](Settings& settings, const std::string& text) {
             return setNumber(settings.mmse.gentle_db, text, {-60, 0, "dB"});
         }},
        {"mmse", "priming_repeats",
         [](Settings& settings, const std::string& text) {
             return setNumber(settings.mmse.priming_repeats, text, {0, 100, "repeats"});
         }},
        {"mmse", "priming_gain_db",
         [](Settings& settings, const std::string& text) {
             return setNumber(settings.mmse.priming_gain_db, text, {0, 20, "dB"});
         }},
        {"mmse", "cold_repeats",
         [](Settings& settings, const std::string& text) {
             return setNumber(settings.mmse.cold_repeats, text, {0, 100, "repeats"});
         }},
        {"vad", "start_margin_db",
         [](Settings& settings, const std::string& text) {
             return setNumber(settings.vad.start_margin_db, text, {0, 40, "dB"});
         }},
        {"vad", "stay_margin_db",
         [](Settings& settings, const std::string& text) {
             return setNumber(settings.vad.stay_margin_db, text, {0, 40, "dB"});
         }},
        {"vad", "onset_ms",
         [](Settings& settings, const std::string& text) {
             return setFrames(settings.vad.onset_frames, text, 10, 1000);
         }},
        {"vad", "hangover_ms",
         [](Settings& settings, const std::string& text) {
             return setFrames(settings.vad.hangover_frames, text, 0, 5000);
         }},
        {"vad", "long_hangover_ms",
         [](Settings& settings, const std::string& text) {
             return setFrames(settings.vad.long_hangover_frames, text, 0, 5000);
         }},
        {"vad", "early_ms",
         [](Settings& settings, const std::string& text) {
             return setFrames(settings.vad.early_frames, text, 0, 10000);
         }},
        {"vad", "lookback_frames",
         [](Settings& settings, const std::string& text) {
             return setNumber(settings.vad.lookback_frames, text, {0, 50, "frames"});
         }},
    };
    return table;
}

}  // namespace

bool isSection(const std::string& section) {
    return std::ranges::any_of(keys(), [&](const Key& key) { return key.section == section; });
}

std::string setKey(Settings& settings, const std::string& section, const std::string& key,
                   const std::string& value) {
    const auto found = std::ranges::find_if(keys(), [&](const Key& candidate) {
        return candidate.section == section && candidate.name == key;
    });
    if (found == keys().end())
        return section.empty() ? "stands before the first [section]"
                               : "unknown in section [" + section + "]";
    return found->set(settings, value);
}

}  // namespace engine
