// SPDX-License-Identifier: MIT
#include "Watchdog.h"

#include <algorithm>
#include <utility>

namespace node {

namespace {

// Bytes that both engines write for a frame.
constexpr uint64_t ANSWERED = framesync::MMSE_FRAME_SIZE + framesync::VAD_FRAME_SIZE;

std::string secondsIn(milliseconds time) {
    return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(time).count()) + " s";
}

uint64_t writtenBy(const std::vector<ProcessVitals>& engines, pid_t pid) {
    const auto engine = std::find_if(engines.begin(), engines.end(),
                                     [pid](const ProcessVitals& one) { return one.pid == pid; });
    return engine == engines.end() ? 0 : engine->written;
}

// Every engine has written since; at a renewal both are new ones.
bool allAnswered(const std::vector<ProcessVitals>& before, const std::vector<ProcessVitals>& now) {
    return !now.empty() && std::all_of(now.begin(), now.end(), [&](const ProcessVitals& engine) {
        return engine.written > writtenBy(before, engine.pid);
    });
}

uint64_t framesAnswered(const std::vector<ProcessVitals>& engines) {
    uint64_t written = 0;
    for (const ProcessVitals& engine : engines)
        written += engine.written;
    return written / ANSWERED;
}

}  // namespace

Watchdog::Watchdog(const WatchdogOptions& options, Clock::time_point began)
    : options_(options), began_(began), last_life_(began), last_look_(began), last_calm_(began) {}

std::optional<std::string> Watchdog::look(const Sight& sight, Clock::time_point now) {
    if (!connected_ && (sight.connected || sight.frames > 0)) {
        connected_ = true;
        last_life_ = last_calm_ = now;
    }
    std::optional<std::string> reason;
    if (!connected_) {
        if (options_.waiting.count() > 0 && now - began_ >= options_.waiting)
            reason = "its peers were not there for " + secondsIn(options_.waiting) +
                     ", and each attempt costs it a descriptor";
    } else {
        reason = lookForSilence(sight, now);
        if (!reason)
            reason = lookForSpin(sight, now);
    }
    frames_ = sight.frames;
    last_look_ = now;
    return reason;
}

std::optional<std::string> Watchdog::lookForSilence(const Sight& sight, Clock::time_point now) {
    seen_ = seen_ || std::ranges::any_of(sight.engines, &ProcessVitals::io_known);
    if (sight.frames > frames_ || allAnswered(engines_, sight.engines)) {
        last_life_ = now;
        engines_ = sight.engines;
    }
    if (options_.silence.count() == 0 || !seen_ || now - last_life_ < options_.silence)
        return std::nullopt;
    return "no frame for " + secondsIn(options_.silence) +
           ": an engine does not answer, or a peer does not read";
}

std::optional<std::string> Watchdog::lookForSpin(const Sight& sight, Clock::time_point now) {
    const uint64_t answered = framesAnswered(sight.engines);
    const uint64_t before = std::exchange(passed_, answered);
    const uint64_t passed =
        std::max(sight.frames - frames_, answered > before ? answered - before : 0);
    const double seconds = std::chrono::duration<double>(now - last_look_).count();
    if (options_.most_frames <= 0 || static_cast<double>(passed) <= options_.most_frames * seconds)
        last_calm_ = now;
    if (now - last_calm_ < options_.spinning)
        return std::nullopt;
    return "far more frames than audio has for " + secondsIn(options_.spinning) +
           ": the voice server has closed one way only";
}

}  // namespace node
