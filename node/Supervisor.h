// SPDX-License-Identifier: MIT
// Keeps a bridge running: starts it, and starts it again whenever it has ended, with a pause that
// grows while nothing comes of it; ends one that hangs, spins or waits too long for its peers.
// There is never a second bridge: the next start waits until every process of the last run is gone.
//
// Owned by the node, which is the listener; nothing here waits. A bridge that cannot be started is
// a reason like others: a missing file may be there the next time.
#ifndef TOLVANEV_NODE_SUPERVISOR_H
#define TOLVANEV_NODE_SUPERVISOR_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Backoff.h"
#include "BridgeRun.h"
#include "Log.h"
#include "RepeatFilter.h"
#include "Watchdog.h"

namespace node {

class Supervisor {
  public:
    Supervisor(Loop& loop, Reaper& reaper, const Log& log, BridgeCommand command,
               const WatchdogOptions& watchdog, Listener& listener);

    void start();
    // Ends the bridge; on_stopped is called once when nothing of it is left.
    void stop(std::function<void()> on_stopped);
    void restart(const std::string& reason);  // ends this run and begins the next after a pause
    // Told to this bridge and to every one after it.
    void playSound(bool on);
    // Once a second: looks at the engines and whether all is well.
    void look();
    void excuse();  // in place of a look: the time since the last one says nothing

    State state() const { return state_; }
    uint64_t runs() const { return runs_; }
    const BridgeRun* run() const { return run_.get(); }  // null = none
    const std::string& lastReason() const { return last_reason_; }
    const std::vector<ProcessVitals>& processes() const { return processes_; }  // at the last look

  private:
    void launch();
    void over();
    void enter(State state, const std::string& reason);
    void couldNotStart(const std::string& reason);
    void tellEnd(const RunEnd& end);  // of a run, or of the attempt to start one
    void finishStop();

    Loop& loop_;
    Reaper& reaper_;
    const Log& log_;
    BridgeCommand command_;
    WatchdogOptions watchdog_options_;
    Listener& listener_;
    Backoff backoff_;
    RepeatFilter ends_;  // one reason is not told for hours
    Timer launch_timer_;
    std::unique_ptr<BridgeRun> run_;  // null = nothing runs
    std::unique_ptr<Watchdog> watchdog_;
    std::vector<ProcessVitals> processes_;
    std::function<void()> on_stopped_;
    State state_ = State::STARTING;
    uint64_t runs_ = 0;
    bool play_sound_ = false;
    bool told_blind_ = false;    // that the engines cannot be looked at
    std::string ended_because_;  // by us; empty = it ended by itself
    std::string last_reason_;
};

}  // namespace node

#endif
