// SPDX-License-Identifier: MIT
// What the node hears and does, as it tells it: every output is a Listener, those of this program
// and those of the ROS nodes. All calls come from the loop; none may wait, or the bridge waits.
#ifndef TOLVANEV_NODE_LISTENER_H
#define TOLVANEV_NODE_LISTENER_H

#include <cstdint>
#include <memory>
#include <string>

#include "Frame.h"
#include "Loop.h"

namespace node {

enum class State {
    STARTING,    // the bridge is being started
    CONNECTING,  // it runs and waits for its peers
    STREAMING,   // both peers are there
    RESTARTING,  // it has ended; the next one is started after a pause
    STOPPING,    // the node was told to end
};
const char* nameOf(State state);  // in small letters, as in --events

enum class Level { ERROR, WARNING, INFO, DEBUG };

struct StateChange {
    State state{};
    uint64_t run = 0;    // the bridge's runs are counted from 1
    std::string reason;  // why, in one line; empty where the state says it all
};

// One run of the bridge has ended.
struct RunEnd {
    uint64_t run = 0;
    bool asked = false;  // by the node, which was told to stop
    std::string reason;  // what happened, after README's table
    std::string status;  // "status 0", "SIGPIPE"
    milliseconds lasted{};
    milliseconds pause{};  // until the next start; 0 when there is none
};

// START or END.
struct SpeechEdge {
    bool begins = false;
    uint64_t run = 0;
    uint64_t frame = 0;  // data frames of this run ahead of it
    SystemTime time;
};

// Why an utterance is as long as it is.
enum class Cut {
    END,      // END came
    STREAM,   // EOF, TOF or another START came without it
    GAP,      // no frame came for a second: they are held back, or the bridge hangs
    RESTART,  // the bridge ended
    LENGTH,   // longer than --utterance-max
};
const char* nameOf(Cut cut);

struct Utterance {
    uint64_t number = 0;  // from 1
    uint64_t run = 0;
    uint64_t first_frame = 0;  // of its speech, behind START, as in SpeechEdge
    SystemTime start;          // when START came
    SystemTime end;
    size_t preroll = 0;  // bytes of audio from before START
    Cut cut = Cut::END;
    std::string audio;  // preroll and speech: samples as in Frame::audio

    double seconds() const { return static_cast<double>(audio.size()) / (2.0 * SAMPLE_RATE); }
};
using UtterancePtr = std::shared_ptr<const Utterance>;

struct RecognisedText {
    uint64_t utterance = 0;
    std::string text;  // one line of the command's output
};

// Bytes that were no frame, dropped to find the next one.
struct Resync {
    uint64_t run = 0;
    uint64_t bytes = 0;
    std::string reason;
};

// A line for people: of the bridge, or of the node itself.
struct Message {
    Level level = Level::INFO;
    bool from_bridge = false;
    std::string text;
};

class Listener {
  public:
    Listener() = default;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    virtual ~Listener() = default;

    virtual void onFrame(const Frame&) {}  // of every type, in the bridge's order
    virtual void onState(const StateChange&) {}
    virtual void onRunEnd(const RunEnd&) {}
    virtual void onSpeech(const SpeechEdge&) {}
    virtual void onUtterance(const UtterancePtr&) {}
    virtual void onText(const RecognisedText&) {}
    virtual void onResync(const Resync&) {}
    virtual void onPlaySound(bool /*on*/) {}
    virtual void onMessage(const Message&) {}

    // The node ends: no further calls come. What waits is still to be written, commands get a
    // moment; idle() is asked until then.
    virtual void finish() {}
    virtual bool idle() const { return true; }
    // Records of its own that it could not hand on since the start of the node.
    virtual uint64_t dropped() const { return 0; }
    virtual std::string name() const { return ""; }  // under which drops are said; empty = none
};

}  // namespace node

#endif
