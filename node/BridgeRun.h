// SPDX-License-Identifier: MIT
// One run of the bridge: its process with its engines, the frames that it writes, its messages and
// the words that it is told. Tells a Listener of frames, messages and torn frames, and its owner,
// the supervisor, when the peers are there and when nothing of the run is left.
//
// Nothing here waits. Made anew for each run; the constructor throws a NodeError when the process
// cannot be started. The destructor kills what is left.
#ifndef TOLVANEV_NODE_BRIDGE_RUN_H
#define TOLVANEV_NODE_BRIDGE_RUN_H

#include <functional>
#include <optional>

#include "BridgeCommand.h"
#include "BridgeMessage.h"
#include "Child.h"
#include "FrameReader.h"
#include "LineReader.h"
#include "Listener.h"
#include "RunReason.h"

namespace node {

class BridgeRun {
  public:
    static constexpr milliseconds PATIENCE{800};     // with an interrupt, before all are killed
    static constexpr milliseconds ENGINES{400};      // with engines whose bridge has ended
    static constexpr milliseconds UNFINISHED{1000};  // a line without a line feed is held so long
    static constexpr size_t MESSAGES = 20;           // remembered for the reason

    struct Owner {
        std::function<void()> on_life;  // the first message, and again when both peers are there
        std::function<void()> on_over;  // nothing is left; may destroy the run
    };
    BridgeRun(Loop& loop, Reaper& reaper, const BridgeCommand& command, uint64_t number,
              Listener& listener, Owner owner);

    void interrupt();         // ends it: SIGINT, and SIGKILL to all when that does not help
    void playSound(bool on);  // the word goes out as soon as the one before was read

    pid_t pid() const { return child_.pid(); }
    uint64_t number() const { return number_; }
    bool connected() const { return connected_; }
    uint64_t frames() const { return frames_; }
    Clock::time_point began() const { return began_; }
    // Between its first and its last frame.
    milliseconds ofFrames() const;
    const RunEvidence& evidence() const { return evidence_; }

  private:
    ChildEvents events();
    void takeFrame(const Frame& frame);
    void takeLine(const std::string& line);
    void tellPlaySound();
    void over();

    uint64_t number_;
    Listener& listener_;
    Owner owner_;
    FrameReader reader_;
    LineReader lines_;
    RunEvidence evidence_;
    Timer line_timer_;
    Timer kill_timer_;
    Timer word_timer_;
    Child child_;
    Clock::time_point began_ = Clock::now();
    Clock::time_point first_frame_;
    Clock::time_point last_frame_;
    uint64_t frames_ = 0;
    bool connected_ = false;
    bool alive_ = false;       // it has said something
    bool play_sound_ = false;  // what it is to know
    bool told_ = false;        // what it was told; it begins with "off"
    std::optional<Clock::time_point> last_word_;
};

}  // namespace node

#endif
