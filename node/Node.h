// SPDX-License-Identifier: MIT
// The node: keeps a bridge running, cuts utterances out of what it says, tells its listeners, and
// lets others say that a sound plays. The program tolvanev-node and the ROS nodes are thin layers
// over it: they make a Loop and a Log, add their outputs and start it.
//
// One thread, that of the loop; nothing here waits.
#ifndef TOLVANEV_NODE_NODE_H
#define TOLVANEV_NODE_NODE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "PlaySound.h"
#include "Service.h"
#include "Supervisor.h"
#include "UtteranceCutter.h"

namespace node {

struct NodeOptions {
    std::vector<std::string> bridge;  // its command line
    WatchdogOptions watchdog;
    CutterOptions cutter;
    milliseconds play_sound_limit{60000};  // the longest sound; 0 = any
};

class Node : private Listener {
  public:
    static constexpr milliseconds OUTPUTS{800};  // that outputs get to finish at the end
    static constexpr milliseconds GAP{500};      // without a frame, to count as a gap

    Node(Loop& loop, const Log& log, const NodeOptions& options);
    ~Node() override;

    void add(std::unique_ptr<Listener> output);  // before start
    void start();
    // Ends the bridge, then the outputs; on_stopped is called once. A second call does nothing.
    void stop(std::function<void()> on_stopped);
    bool stopping() const { return stopping_; }

    void restart() { supervisor_.restart("asked to restart"); }

    // A holder says that it plays a sound, or has finished; who names it in a warning.
    void playSound(PlaySound::Holder holder, bool on);
    void playSoundGone(PlaySound::Holder holder, const std::string& who);
    bool playSoundState() const { return play_sound_.on(); }

    // From outputs that have something to tell the others.
    void tellText(const RecognisedText& text) { onText(text); }
    void tellMessage(const Message& message) { onMessage(message); }

    Status status() const;
    bool outputsIdle() const;
    Reaper& reaper() { return reaper_; }  // for outputs that start commands

  private:
    void onFrame(const Frame& frame) override;
    void onState(const StateChange& change) override;
    void onRunEnd(const RunEnd& end) override;
    void onSpeech(const SpeechEdge& edge) override;
    void onUtterance(const UtterancePtr& utterance) override;
    void onText(const RecognisedText& text) override;
    void onResync(const Resync& resync) override;
    void onMessage(const Message& message) override;

    void count(const Frame& frame, Clock::time_point now);
    void everySecond();
    void applyPlaySound();
    void finishOutputs();

    const Log& log_;
    Reaper reaper_;
    Service service_;
    PlaySound play_sound_;
    UtteranceCutter cutter_;
    std::vector<std::unique_ptr<Listener>> outputs_;
    Timer second_;
    Timer finish_timer_;
    Supervisor supervisor_;
    std::function<void()> on_stopped_;
    Clock::time_point last_second_;  // when that was
    Clock::time_point finish_by_;
    Clock::time_point run_began_;
    Clock::time_point last_frame_;
    bool run_has_frames_ = false;
    bool told_play_sound_ = false;
    bool stopping_ = false;
    Status totals_;               // what is counted as it comes
    uint64_t frames_ = 0;         // of all types and runs
    uint64_t frames_before_ = 0;  // at the last second
};

}  // namespace node

#endif
