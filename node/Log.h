// SPDX-License-Identifier: MIT
// The node's standard error: one line an event. When the journal reads it, lines carry its level
// (<3> error, <4> warning, <6> info, <7> debug); otherwise they begin with the time.
//
//     14:03:27.045 warning: bridge: Socket accept timeout occured.
//
// Owned by main, given to all parts; never waits: what nobody reads is dropped.
#ifndef TOLVANEV_NODE_LOG_H
#define TOLVANEV_NODE_LOG_H

#include <functional>
#include <memory>
#include <string>

#include "Listener.h"
#include "Sink.h"

namespace node {

class Log {
  public:
    using Write = std::function<void(const Message&)>;
    explicit Log(Write write) : write_(std::move(write)) {}

    void say(Level level, const std::string& text) const { write_({level, false, text}); }
    void error(const std::string& text) const { say(Level::ERROR, text); }
    void warning(const std::string& text) const { write_({Level::WARNING, false, text}); }
    void info(const std::string& text) const { write_({Level::INFO, false, text}); }
    void debug(const std::string& text) const { write_({Level::DEBUG, false, text}); }
    void bridge(Level level, const std::string& text) const { write_({level, true, text}); }

  private:
    Write write_;
};

// The line for a message, line feed included. Control characters of the text become "?".
std::string lineOf(const Message& message, bool journal, SystemTime now);

// True when this process' standard error is a connection to the journal (JOURNAL_STREAM).
bool journalReads();

}  // namespace node

#endif
