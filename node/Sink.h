// SPDX-License-Identifier: MIT
// Writes records (lines, frames) to a file, a FIFO or standard output without ever waiting. A
// record goes out whole or not at all; one for which there is no room is dropped and counted.
// Owned by an output. Opening fails with a NodeError; later failures (full disk, reader gone) are
// kept in error() until a write succeeds again.
//
// - a regular file is appended to in the background; a record that did not fit whole is taken back.
//   One that was renamed or removed, as log files are, is made anew
// - a FIFO waits for its reader, who is looked for once a second; without one nothing is written
//   and nothing counts as dropped
// - a terminal, pipe or socket (path "-" for standard output) is written to as it takes it
#ifndef TOLVANEV_NODE_SINK_H
#define TOLVANEV_NODE_SINK_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Loop.h"

namespace node {

class Sink {
  public:
    Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    virtual ~Sink() = default;

    // limit: bytes that may wait. gather: how long records for a regular file are gathered before
    // they are written together.
    static std::unique_ptr<Sink> open(Loop& loop, const std::string& path, size_t limit,
                                      milliseconds gather = milliseconds(0));
    // fd stays the caller's; for standard error.
    static std::unique_ptr<Sink> onDescriptor(Loop& loop, int fd, size_t limit);

    virtual bool write(std::string record) = 0;  // false: dropped
    virtual bool idle() const = 0;               // nothing waits, or nothing can be done about it
    virtual std::string error() const = 0;       // the last failure; empty = none
    uint64_t dropped() const { return dropped_; }
    // Called behind each change of error() and dropped(), also out of write(). May not destroy
    // this.
    void onChange(std::function<void()> action) { on_change_ = std::move(action); }

  protected:
    void changed() const {
        if (on_change_)
            on_change_();
    }
    uint64_t dropped_ = 0;

  private:
    std::function<void()> on_change_;  // empty = nobody asks
};

}  // namespace node

#endif
