// SPDX-License-Identifier: MIT
#include "EventLog.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "TimeText.h"

namespace node {

namespace {

double inSeconds(milliseconds time) {
    return std::chrono::duration<double>(time).count();
}

// Three digits behind the point are what a reader of lines wants to see.
double rounded(double seconds) {
    return std::round(seconds * 1000) / 1000;
}

}  // namespace

struct EventLog::Event {
    Event(const char* name, uint64_t run, SystemTime time = std::chrono::system_clock::now())
        : fields{{"time", isoTime(time)}, {"event", name}, {"run", run}} {}
    nlohmann::ordered_json fields;
};

EventLog::EventLog(Loop& loop, const Log& log, const EventLogOptions& options, GetDropped dropped)
    : warnings_(loop, log, "events", "event"),
      sink_(Sink::open(loop, options.path, options.limit)),
      get_dropped_(std::move(dropped)),
      drop_timer_(loop, [this] { lookForDropped(); }) {
    sink_->onChange([this] { warnings_.look(*sink_); });
    warnings_.look(*sink_);
    if (get_dropped_)
        drop_timer_.every(options.drop_period);
}

void EventLog::write(const Event& event) {
    sink_->write(event.fields.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
                 '\n');
}

void EventLog::onState(const StateChange& change) {
    run_ = change.run;
    Event event("state", run_);
    event.fields["state"] = nameOf(change.state);
    if (!change.reason.empty())
        event.fields["reason"] = change.reason;
    write(event);
}

void EventLog::onRunEnd(const RunEnd& end) {
    run_ = end.run;
    Event event("run_end", run_);
    event.fields["asked"] = end.asked;
    event.fields["reason"] = end.reason;
    event.fields["status"] = end.status;
    event.fields["lasted"] = inSeconds(end.lasted);
    event.fields["pause"] = inSeconds(end.pause);
    write(event);
}

void EventLog::onSpeech(const SpeechEdge& edge) {
    run_ = edge.run;
    Event event(edge.begins ? "speech_start" : "speech_end", run_, edge.time);
    event.fields["frame"] = edge.frame;
    write(event);
}

void EventLog::onUtterance(const UtterancePtr& utterance) {
    Event event("utterance", utterance->run);
    event.fields["utterance"] = utterance->number;
    event.fields["start"] = isoTime(utterance->start);
    event.fields["end"] = isoTime(utterance->end);
    event.fields["first_frame"] = utterance->first_frame;
    event.fields["seconds"] = rounded(utterance->seconds());
    event.fields["preroll"] =
        rounded(static_cast<double>(utterance->preroll) / (2.0 * SAMPLE_RATE));
    event.fields["cut"] = nameOf(utterance->cut);
    write(event);
}

void EventLog::onText(const RecognisedText& text) {
    Event event("text", run_);
    event.fields["utterance"] = text.utterance;
    event.fields["text"] = text.text;
    write(event);
}

void EventLog::onResync(const Resync& resync) {
    run_ = resync.run;
    Event event("resync", run_);
    event.fields["bytes"] = resync.bytes;
    event.fields["reason"] = resync.reason;
    write(event);
}

void EventLog::onPlaySound(bool on) {
    Event event("play_sound", run_);
    event.fields["on"] = on;
    write(event);
}

void EventLog::onMessage(const Message& message) {
    if (message.level != Level::WARNING && message.level != Level::ERROR)
        return;
    Event event(message.level == Level::ERROR ? "error" : "warning", run_);
    event.fields["from"] = message.from_bridge ? "bridge" : "node";
    event.fields["text"] = message.text;
    write(event);
}

void EventLog::onWav(uint64_t utterance, const std::string& path) {
    Event event("wav", run_);
    event.fields["utterance"] = utterance;
    event.fields["path"] = path;
    write(event);
}

void EventLog::finish() {
    lookForDropped();
    warnings_.finish();
}

void EventLog::lookForDropped() {
    if (!get_dropped_)
        return;
    for (const auto& [output, total] : get_dropped_()) {
        uint64_t& told = told_dropped_[output];
        if (total <= told)
            continue;
        Event event("dropped", run_);
        event.fields["output"] = output;
        event.fields["count"] = total - std::exchange(told, total);
        event.fields["total"] = total;
        write(event);
    }
}

}  // namespace node
