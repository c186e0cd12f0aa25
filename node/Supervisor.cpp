// SPDX-License-Identifier: MIT
#include "Supervisor.h"

#include <utility>

#include "Vitals.h"

namespace node {

namespace {

constexpr const char* NOT_STARTED = "not started";  // in place of an exit status

}  // namespace

Supervisor::Supervisor(Loop& loop, Reaper& reaper, const Log& log, BridgeCommand command,
                       const WatchdogOptions& watchdog, Listener& listener)
    : loop_(loop),
      reaper_(reaper),
      log_(log),
      command_(std::move(command)),
      watchdog_options_(watchdog),
      listener_(listener),
      launch_timer_(loop, [this] { start(); }) {}

void Supervisor::start() {
    ++runs_;
    ended_because_.clear();
    enter(State::STARTING, "");
    const std::string problem = command_.problem();
    if (!problem.empty())
        return couldNotStart(problem);
    try {
        launch();
    } catch (const NodeError& error) {
        couldNotStart(error.what());
    }
}

void Supervisor::launch() {
    BridgeRun::Owner owner;
    owner.on_life = [this] {
        if (state_ == State::STARTING || state_ == State::CONNECTING)
            enter(run_->connected() ? State::STREAMING : State::CONNECTING, "");
    };
    owner.on_over = [this] { over(); };
    run_ = std::make_unique<BridgeRun>(loop_, reaper_, command_, runs_, listener_, owner);
    watchdog_ = std::make_unique<Watchdog>(watchdog_options_, run_->began());
    run_->playSound(play_sound_);
}

void Supervisor::over() {
    const std::unique_ptr<BridgeRun> run = std::move(run_);
    processes_.clear();
    RunEnd end;
    end.run = run->number();
    end.asked = state_ == State::STOPPING;
    end.reason = ended_because_.empty() ? reasonOf(run->evidence()) : ended_because_;
    end.status = run->evidence().ending.text();
    end.lasted = std::chrono::duration_cast<milliseconds>(Clock::now() - run->began());
    if (end.asked) {
        listener_.onRunEnd(end);
        return finishStop();
    }
    end.pause = backoff_.after(run->ofFrames());
    tellEnd(end);
}

void Supervisor::couldNotStart(const std::string& reason) {
    RunEnd end;
    end.run = runs_;
    end.reason = reason;
    end.status = NOT_STARTED;
    end.pause = backoff_.after(milliseconds(0));
    tellEnd(end);
}

void Supervisor::tellEnd(const RunEnd& end) {
    last_reason_ = end.reason;
    const std::string how = end.status == NOT_STARTED ? "the bridge was not started: "
                                                      : "the bridge ended (" + end.status + "): ";
    const Level level = end.status == NOT_STARTED ? Level::ERROR : Level::WARNING;
    const auto text = ends_.pass(
        how + end.reason + "; next start in " + std::to_string(end.pause.count() / 1000) + " s",
        Clock::now());
    if (text)
        log_.say(level, *text);
    listener_.onRunEnd(end);
    enter(State::RESTARTING, end.reason);
    launch_timer_.once(end.pause);
}

void Supervisor::stop(std::function<void()> on_stopped) {
    if (state_ == State::STOPPING)
        return;
    on_stopped_ = std::move(on_stopped);
    launch_timer_.stop();
    enter(State::STOPPING, "");
    if (!run_)
        return finishStop();
    ended_because_ = "asked to stop";
    run_->interrupt();
}

void Supervisor::finishStop() {
    if (on_stopped_)
        std::exchange(on_stopped_, nullptr)();
}

void Supervisor::restart(const std::string& reason) {
    if (!run_ || state_ == State::STOPPING || !ended_because_.empty())
        return;
    ended_because_ = reason;
    run_->interrupt();
}

void Supervisor::playSound(bool on) {
    play_sound_ = on;
    if (run_)
        run_->playSound(on);
}

void Supervisor::look() {
    processes_.clear();
    if (!run_)
        return;
    if (const auto bridge = vitalsOf(run_->pid(), "bridge"))
        processes_.push_back(*bridge);
    Watchdog::Sight sight{run_->connected(), run_->frames(), {}};
    for (const pid_t pid : childrenOf(run_->pid())) {
        if (const auto engine = vitalsOf(pid, "engine"))
            sight.engines.push_back(*engine);
    }
    processes_.insert(processes_.end(), sight.engines.begin(), sight.engines.end());
    if (const auto reason = watchdog_->look(sight, Clock::now()))
        restart(*reason);
    if (watchdog_->blind() && !std::exchange(told_blind_, true))
        log_.warning(
            "/proc does not tell what the engines write; without frames, as with EPD off, "
            "one that hangs is not noticed");
}

void Supervisor::excuse() {
    if (watchdog_)
        watchdog_->excuse(Clock::now());
}

void Supervisor::enter(State state, const std::string& reason) {
    if (state == State::STREAMING)
        ends_ = {};  // it worked: the next end is news
    state_ = state;
    listener_.onState({state, runs_, reason});
}

}  // namespace node
