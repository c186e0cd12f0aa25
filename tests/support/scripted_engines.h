// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_SCRIPTED_ENGINES_H
#define TOLVANEV_TESTS_SCRIPTED_ENGINES_H

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "temp_dir.h"
#include "wait_until.h"

// The settings file and the log of one scripted engine (scripted_engine.cpp), in a fresh folder.
class ScriptedEngine {
  public:
    explicit ScriptedEngine(const std::string& role) : role_(role) { follow(""); }

    // The script from the next start on, besides role and log; directives end in line feeds.
    void follow(const std::string& script) {
        dir_.write("settings", "role " + role_ + "\nlog " + dir_.path("log") + "\n" + script);
    }
    std::string settings() const { return dir_.path("settings"); }

    // Its log, oldest first, without the process ids.
    std::vector<std::string> events() const {
        std::vector<std::string> result;
        std::istringstream log(dir_.read("log"));
        for (std::string pid, event; log >> pid >> std::ws && std::getline(log, event);)
            result.push_back(event);
        return result;
    }
    // The frames it was sent, "9:0 0:1".
    std::string frames() const {
        std::string result;
        for (const std::string& event : events()) {
            std::istringstream words(event);
            if (std::string kind, type, first; words >> kind >> type >> first && kind == "frame")
                result.append(result.empty() ? "" : " ").append(type).append(":").append(first);
        }
        return result;
    }
    // The process ids of its starts, oldest first.
    std::vector<int> pids() const {
        std::vector<int> result;
        std::istringstream log(dir_.read("log"));
        int pid = 0;
        for (std::string event; log >> pid >> std::ws && std::getline(log, event);)
            if (event == "start")
                result.push_back(pid);
        return result;
    }
    // Waits until it has logged this event so often.
    bool hasLogged(const std::string& event, long times = 1) const {
        return waitUntil([&] {
            const auto all = events();
            return std::count(all.begin(), all.end(), event) >= times;
        });
    }

  private:
    std::string role_;
    TempDir dir_;
};

// The pair that a bridge drives.
struct ScriptedEngines {
    ScriptedEngine mmse{"mmse"};
    ScriptedEngine vad{"vad"};
};

#endif
