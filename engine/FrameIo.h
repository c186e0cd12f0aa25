// SPDX-License-Identifier: MIT
// Whole frames over pipes that deliver whatever they like. System errors are std::system_error.
#ifndef TOLVANEV_ENGINE_FRAMEIO_H
#define TOLVANEV_ENGINE_FRAMEIO_H

#include <cstddef>
#include <span>

#include "Frame.h"

namespace engine {

enum class ReadResult {
    FRAME,  // a whole frame
    END,    // the input ended between two frames
    CUT     // the input ended inside a frame
};

// Waits for one frame, however many reads it takes.
ReadResult readFrame(int fd, AudioFrame& frame);

// One write(2) of the full size; more only if the pipe took less.
void writeFrame(int fd, std::span<const std::byte> frame);

}  // namespace engine

#endif
