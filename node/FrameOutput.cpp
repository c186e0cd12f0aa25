// SPDX-License-Identifier: MIT
#include "FrameOutput.h"

namespace node {

FrameOutput::FrameOutput(Loop& loop, const Log& log, const FrameOutputOptions& options)
    : warnings_(loop, log, "frames", "frame"),
      sink_(Sink::open(loop, options.path, options.limit, options.gather)) {
    sink_->onChange([this] { warnings_.look(*sink_); });
    warnings_.look(*sink_);
}

void FrameOutput::onFrame(const Frame& frame) {
    sink_->write(std::string(frame.bytes.data(), frame.bytes.size()));
}

}  // namespace node
