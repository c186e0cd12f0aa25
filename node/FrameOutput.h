// SPDX-License-Identifier: MIT
// --frames: the bridge's frames as they are, for programs that know how to read the bridge.
#ifndef TOLVANEV_NODE_FRAME_OUTPUT_H
#define TOLVANEV_NODE_FRAME_OUTPUT_H

#include "OutputWarnings.h"

namespace node {

struct FrameOutputOptions {
    std::string path;                                    // file, FIFO or "-"
    size_t limit = FRAME_SIZE * FRAMES_PER_SECOND * 10;  // bytes that may wait: 10 s
    milliseconds gather{250};  // frames for a regular file, which nobody follows that closely
};

class FrameOutput : public Listener {
  public:
    // Throws a NodeError when the file cannot be opened.
    FrameOutput(Loop& loop, const Log& log, const FrameOutputOptions& options);

    void onFrame(const Frame& frame) override;
    void finish() override { warnings_.finish(); }
    bool idle() const override { return sink_->idle(); }
    uint64_t dropped() const override { return sink_->dropped(); }
    std::string name() const override { return warnings_.name(); }

  private:
    OutputWarnings warnings_;
    const std::unique_ptr<Sink> sink_;
};

}  // namespace node

#endif
