// SPDX-License-Identifier: MIT
// What an output says of its troubles, so that one that lasts for hours is not said for hours: a
// failure once, until its text changes or it has worked again; dropped records by their number, at
// most every ten seconds. Owned by an output.
#ifndef TOLVANEV_NODE_OUTPUT_WARNINGS_H
#define TOLVANEV_NODE_OUTPUT_WARNINGS_H

#include <cstdint>
#include <string>

#include "Log.h"
#include "Loop.h"
#include "Sink.h"

namespace node {

class OutputWarnings {
  public:
    // name: of the output, ahead of each text. record: what it drops, "frame".
    OutputWarnings(Loop& loop, const Log& log, std::string name, std::string record);

    void failed(const std::string& text);
    void worked();
    void dropped(uint64_t count = 1);
    void look(const Sink& sink);     // takes both from there
    void finish() { sayDropped(); }  // what was not said for having been said just before

    uint64_t totalDropped() const { return total_; }
    const std::string& name() const { return name_; }

  private:
    void sayDropped();

    const Log& log_;
    const std::string name_;
    const std::string record_;
    std::string failure_;  // said; empty = it works
    uint64_t total_ = 0;
    uint64_t said_ = 0;  // of the total
    Timer pause_;        // active: something was said less than ten seconds ago
};

}  // namespace node

#endif
