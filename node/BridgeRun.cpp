// SPDX-License-Identifier: MIT
#include "BridgeRun.h"

#include <signal.h>

#include <utility>

namespace node {

namespace {

constexpr milliseconds WORD_PERIOD{20};
constexpr milliseconds CALM_PERIOD{250};  // while it reads nothing
constexpr milliseconds JUST_NOW{500};     // a pass of the bridge takes a tenth of a second at most
constexpr std::string_view WORDS[] = {"play_sound_off\n", "play_sound_on\n"};

}  // namespace

BridgeRun::BridgeRun(Loop& loop, Reaper& reaper, const BridgeCommand& command, uint64_t number,
                     Listener& listener, Owner owner)
    : number_(number),
      listener_(listener),
      owner_(std::move(owner)),
      reader_([this](const Frame& frame) { takeFrame(frame); },
              [this](size_t bytes, const std::string& reason) {
                  listener_.onResync({number_, bytes, reason});
              }),
      lines_([this](const std::string& line) { takeLine(line); }),
      line_timer_(loop, [this] { lines_.flush(); }),
      kill_timer_(loop, [this] { child_.signalGroup(SIGKILL); }),
      word_timer_(loop, [this] { tellPlaySound(); }),
      child_(loop, reaper, command.words(), {}, events()) {}

ChildEvents BridgeRun::events() {
    ChildEvents events;
    events.on_output = [this](std::string_view bytes) { reader_.read(bytes); };
    events.on_errors = [this](std::string_view bytes) {
        lines_.read(bytes);
        if (lines_.unfinished())
            line_timer_.once(UNFINISHED);
    };
    events.on_exit = [this](const Ending& ending) {
        evidence_.ending = ending;
        evidence_.just_told = last_word_ && Clock::now() - *last_word_ < JUST_NOW;
        kill_timer_.once(ENGINES);
    };
    events.on_stray = [this](const Ending& ending) { evidence_.engines.push_back(ending); };
    events.on_gone = [this] { over(); };
    return events;
}

void BridgeRun::interrupt() {
    child_.signal(SIGINT);
    if (!child_.exited())
        kill_timer_.once(PATIENCE);
}

// The bridge looks at no more than 256 bytes a pass and loses a word that lies across them, and a
// word more does not tell it more: only the latest state counts.
void BridgeRun::playSound(bool on) {
    play_sound_ = on;
    tellPlaySound();
}

void BridgeRun::tellPlaySound() {
    word_timer_.stop();
    if (told_ == play_sound_ || child_.exited())
        return;
    if (child_.waitingInput() + child_.unreadInput() > 0)
        return word_timer_.once(connected_ ? WORD_PERIOD : CALM_PERIOD);
    told_ = play_sound_;
    last_word_ = Clock::now();
    child_.write(std::string(WORDS[told_ ? 1 : 0]));
}

void BridgeRun::takeFrame(const Frame& frame) {
    last_frame_ = Clock::now();
    if (frames_++ == 0) {
        first_frame_ = last_frame_;
        evidence_.had_frames = true;
    }
    if (!connected_) {
        connected_ = true;
        owner_.on_life();
    }
    listener_.onFrame(frame);
}

void BridgeRun::takeLine(const std::string& line) {
    for (const Message& message : parseBridgeLine(line)) {
        evidence_.messages.push_back(message.text);
        if (evidence_.messages.size() > MESSAGES)
            evidence_.messages.pop_front();
        listener_.onMessage(message);
        const bool connected = !connected_ && saysConnected(message.text);
        if (connected)
            connected_ = true;
        if (!std::exchange(alive_, true) || connected)
            owner_.on_life();
    }
}

milliseconds BridgeRun::ofFrames() const {
    return std::chrono::duration_cast<milliseconds>(last_frame_ - first_frame_);
}

void BridgeRun::over() {
    lines_.flush();
    reader_.end();
    const auto on_over = owner_.on_over;
    on_over();
}

}  // namespace node
