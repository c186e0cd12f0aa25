// SPDX-License-Identifier: MIT
#include "Node.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "Vitals.h"

namespace node {

namespace {

constexpr milliseconds SECOND{1000};
constexpr milliseconds LATE{1500};  // between two seconds
constexpr milliseconds FINISH_PERIOD{10};

SystemTime wallClock() {
    return std::chrono::system_clock::now();
}

}  // namespace

Node::Node(Loop& loop, const Log& log, const NodeOptions& options)
    : log_(log),
      reaper_(loop, [&log](const std::string& text) { log.error(text); }),
      service_(loop),
      play_sound_(options.play_sound_limit),
      cutter_(
          options.cutter, [this](const SpeechEdge& edge) { onSpeech(edge); },
          [this](const UtterancePtr& utterance) { onUtterance(utterance); }),
      second_(loop, [this] { everySecond(); }),
      finish_timer_(loop, [this] { finishOutputs(); }),
      supervisor_(loop, reaper_, log, BridgeCommand(options.bridge), options.watchdog, *this) {}

Node::~Node() = default;

void Node::add(std::unique_ptr<Listener> output) {
    outputs_.push_back(std::move(output));
}

void Node::start() {
    last_second_ = Clock::now();
    second_.every(SECOND);
    supervisor_.start();
    service_.ready();
}

void Node::stop(std::function<void()> on_stopped) {
    if (stopping_)
        return;
    stopping_ = true;
    on_stopped_ = std::move(on_stopped);
    service_.stopping();
    supervisor_.stop([this] {
        for (const auto& output : outputs_)
            output->finish();
        finish_by_ = Clock::now() + OUTPUTS;
        finish_timer_.every(FINISH_PERIOD);
    });
}

void Node::finishOutputs() {
    if (!outputsIdle() && Clock::now() < finish_by_)
        return;
    for (const auto& output : outputs_) {
        if (!output->idle())
            log_.warning("the node ends before " + output->name() + " has finished");
    }
    finish_timer_.stop();
    second_.stop();
    if (on_stopped_)
        std::exchange(on_stopped_, nullptr)();
}

bool Node::outputsIdle() const {
    return std::all_of(outputs_.begin(), outputs_.end(),
                       [](const auto& output) { return output->idle(); });
}

void Node::playSound(PlaySound::Holder holder, bool on) {
    play_sound_.set(holder, on, Clock::now());
    applyPlaySound();
}

void Node::playSoundGone(PlaySound::Holder holder, const std::string& who) {
    if (!play_sound_.gone(holder))
        return;
    log_.warning(who + " has gone without saying that its sound has ended; taken as ended");
    applyPlaySound();
}

void Node::applyPlaySound() {
    if (told_play_sound_ == play_sound_.on())
        return;
    told_play_sound_ = play_sound_.on();
    supervisor_.playSound(told_play_sound_);
    for (const auto& output : outputs_)
        output->onPlaySound(told_play_sound_);
}

void Node::everySecond() {
    const auto now = Clock::now();
    for (const PlaySound::Holder holder : play_sound_.expire(now)) {
        (void)holder;
        log_.warning("a sound is said to play for longer than --play-sound-limit; taken as ended");
    }
    applyPlaySound();
    // The loop stood still: what came meanwhile waits behind this, and time says nothing.
    const bool late = now - std::exchange(last_second_, now) > LATE;
    if (late) {
        cutter_.excuse(now);
        supervisor_.excuse();
    } else {
        cutter_.lookForGap(now, wallClock());
        supervisor_.look();
    }
    totals_.rate = static_cast<double>(frames_ - std::exchange(frames_before_, frames_));
}

void Node::onFrame(const Frame& frame) {
    const auto now = Clock::now();
    count(frame, now);
    for (const auto& output : outputs_)
        output->onFrame(frame);
    cutter_.take(frame, now, wallClock());
}

void Node::count(const Frame& frame, Clock::time_point now) {
    ++frames_;
    if (run_has_frames_ && now - last_frame_ > GAP)
        ++totals_.gaps;
    run_has_frames_ = true;
    last_frame_ = now;
    switch (frame.type()) {
        case FRAME_DATA:
            ++totals_.data_frames;
            break;
        case FRAME_START:
            ++totals_.start_frames;
            break;
        case FRAME_END:
            ++totals_.end_frames;
            break;
        case FRAME_TOF:
            ++totals_.tof_frames;
            break;
        default:
            ++totals_.eof_frames;
    }
}

void Node::onState(const StateChange& change) {
    if (change.state == State::STARTING) {
        cutter_.beginRun(change.run);
        run_has_frames_ = false;
        run_began_ = Clock::now();
    }
    std::string text = nameOf(change.state);
    if (!change.reason.empty())
        text += ": " + change.reason;
    service_.status(text);
    if (change.state == State::STREAMING)
        log_.info("both peers are there, run " + std::to_string(change.run));
    else
        log_.debug(text);
    for (const auto& output : outputs_)
        output->onState(change);
}

void Node::onRunEnd(const RunEnd& end) {
    cutter_.endRun(wallClock());
    for (const auto& output : outputs_)
        output->onRunEnd(end);
}

void Node::onSpeech(const SpeechEdge& edge) {
    for (const auto& output : outputs_)
        output->onSpeech(edge);
}

void Node::onUtterance(const UtterancePtr& utterance) {
    for (const auto& output : outputs_)
        output->onUtterance(utterance);
}

void Node::onText(const RecognisedText& text) {
    for (const auto& output : outputs_)
        output->onText(text);
}

void Node::onResync(const Resync& resync) {
    ++totals_.resyncs;
    totals_.resync_bytes += resync.bytes;
    log_.warning(std::to_string(resync.bytes) + " bytes were no frame: " + resync.reason);
    for (const auto& output : outputs_)
        output->onResync(resync);
}

void Node::onMessage(const Message& message) {
    if (message.from_bridge)
        log_.bridge(message.level, message.text);
    for (const auto& output : outputs_)
        output->onMessage(message);
}

Status Node::status() const {
    Status status = totals_;
    const auto now = Clock::now();
    const auto seconds = [](Clock::duration time) {
        return std::chrono::duration<double>(time).count();
    };
    status.state = supervisor_.state();
    status.reason = supervisor_.lastReason();
    status.run = supervisor_.runs();
    status.restarts = status.run > 0 ? status.run - 1 : 0;
    if (supervisor_.run())
        status.run_seconds = seconds(now - run_began_);
    if (run_has_frames_)
        status.frame_age = seconds(now - last_frame_);
    status.utterances = cutter_.count();
    status.speech = cutter_.open();
    status.play_sound = play_sound_.on();
    for (const auto& output : outputs_) {
        if (!output->name().empty())
            status.dropped[output->name()] += output->dropped();
    }
    if (const auto own = vitalsOf(getpid(), "node"))
        status.processes.push_back(*own);
    const auto& others = supervisor_.processes();
    status.processes.insert(status.processes.end(), others.begin(), others.end());
    return status;
}

}  // namespace node
