// SPDX-License-Identifier: MIT
// --events: one JSON object a line for each thing that the node hears or does. The fields are a
// table in docs/node.md. Text that is no UTF-8 has U+FFFD in the place of what is wrong.
#ifndef TOLVANEV_NODE_EVENT_LOG_H
#define TOLVANEV_NODE_EVENT_LOG_H

#include <map>

#include "OutputWarnings.h"

namespace node {

struct EventLogOptions {
    std::string path;                // file, FIFO or "-"
    size_t limit = 1 << 20;          // bytes that may wait
    milliseconds drop_period{1000};  // between looks at what outputs have dropped
};

class EventLog : public Listener {
  public:
    using GetDropped = std::function<std::map<std::string, uint64_t>()>;  // by output
    // Throws a NodeError when the file cannot be opened. dropped: empty = nobody drops.
    EventLog(Loop& loop, const Log& log, const EventLogOptions& options, GetDropped dropped);

    void onState(const StateChange& change) override;
    void onRunEnd(const RunEnd& end) override;
    void onSpeech(const SpeechEdge& edge) override;
    void onUtterance(const UtterancePtr& utterance) override;
    void onText(const RecognisedText& text) override;
    void onResync(const Resync& resync) override;
    void onPlaySound(bool on) override;
    void onMessage(const Message& message) override;  // warnings and errors
    void onWav(uint64_t utterance, const std::string& path);

    void finish() override;
    bool idle() const override { return sink_->idle(); }
    uint64_t dropped() const override { return sink_->dropped(); }
    std::string name() const override { return warnings_.name(); }

  private:
    struct Event;
    void write(const Event& event);
    void lookForDropped();

    OutputWarnings warnings_;
    const std::unique_ptr<Sink> sink_;
    const GetDropped get_dropped_;
    std::map<std::string, uint64_t> told_dropped_;
    uint64_t run_ = 0;  // the last one heard of; 0 = none yet
    Timer drop_timer_;
};

}  // namespace node

#endif
