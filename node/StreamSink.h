// SPDX-License-Identifier: MIT
// A Sink on what takes bytes when someone reads them: a pipe, a terminal, a socket, a FIFO.
//
// One whose reader has gone is closed. A FIFO is then looked at once a second, as it is at first:
// what waited for the old reader is not for the new one, who begins with a whole record.
#ifndef TOLVANEV_NODE_STREAM_SINK_H
#define TOLVANEV_NODE_STREAM_SINK_H

#include <deque>

#include "Sink.h"

namespace node {

class StreamSink : public Sink {
  public:
    // Owns fd. It does not block while this writes to it, and is left as it was found.
    StreamSink(Loop& loop, int fd, size_t limit);
    StreamSink(Loop& loop, std::string fifo, size_t limit);
    ~StreamSink() override;

    bool write(std::string record) override;
    bool idle() const override { return records_.empty(); }
    std::string error() const override { return error_; }

  private:
    void use(int fd);
    void lookForReader();
    void flush();
    void watch();
    void lose(int error_number);
    void setError(const std::string& error);

    Loop& loop_;
    const size_t limit_;
    const std::string fifo_;      // path; empty = it is none
    int fd_ = -1;                 // -1 = nobody reads
    int flags_ = 0;               // of the description, as found
    bool tells_its_end_ = false;  // an event says that the reader has gone
    Handle<uv_poll_t> poll_;
    std::deque<std::string> records_;
    size_t done_ = 0;     // bytes of the first record
    size_t waiting_ = 0;  // bytes of all records
    std::string error_;
    Timer look_timer_;  // for FIFOs
};

}  // namespace node

#endif
