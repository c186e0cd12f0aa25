// SPDX-License-Identifier: MIT
// Puts the bridge's frames together from whatever a read of its standard output gave. The stream
// has no length and no synchronisation word; a frame was torn when the bridge was killed amid a
// write, or when one of its writes was short. Then types are read from audio, and this looks for
// the next place where CONFIRMED types in a row stand 324 bytes apart; what lies ahead of it is
// dropped and told. In digital silence every place looks like that; the next sound tells.
//
// Owned by the supervisor, one for each run. Waits for nothing, throws nothing of its own.
#ifndef TOLVANEV_NODE_FRAME_READER_H
#define TOLVANEV_NODE_FRAME_READER_H

#include <functional>
#include <string>
#include <string_view>

#include "Frame.h"

namespace node {

class FrameReader {
  public:
    static constexpr size_t CONFIRMED = 3;  // types in a row that make a place a frame's beginning

    using OnFrame = std::function<void(const Frame&)>;
    using OnLoss = std::function<void(size_t bytes, const std::string& reason)>;
    FrameReader(OnFrame on_frame, OnLoss on_loss)
        : on_frame_(std::move(on_frame)), on_loss_(std::move(on_loss)) {}

    void read(std::string_view bytes);
    void end();  // of the stream: what is left is a torn frame

  private:
    bool typeAt(size_t offset) const;  // a known type stands there
    bool search();                     // false: more bytes are needed
    void lose(const std::string& reason);

    OnFrame on_frame_;
    OnLoss on_loss_;
    std::string waiting_;    // bytes not yet handed on
    size_t at_ = 0;          // of waiting_, where the next frame begins
    bool lost_ = false;      // looking for a place
    size_t lost_bytes_ = 0;  // dropped so far by this search
    std::string lost_type_;  // what stood in a type's place
    Frame frame_;
};

}  // namespace node

#endif
