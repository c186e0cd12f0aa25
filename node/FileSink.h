// SPDX-License-Identifier: MIT
// A Sink on what is always ready and may still be slow: a regular file, /dev/null. Records that
// come while others are being written go out together behind them.
#ifndef TOLVANEV_NODE_FILE_SINK_H
#define TOLVANEV_NODE_FILE_SINK_H

#include <vector>

#include "Sink.h"

namespace node {

class FileSink : public Sink {
  public:
    // path: empty = whatever becomes of its name, it is written to through fd. Owns fd. gather:
    // what comes within this time is written at once; each write is a job of its own for a thread.
    FileSink(Loop& loop, int fd, std::string path, size_t limit, milliseconds gather);

    bool write(std::string record) override;
    bool idle() const override { return records_.empty() && !background_.busy(); }
    std::string error() const override { return error_; }

  private:
    struct File;
    struct Batch;
    void start();
    void startSoon();
    void finished(const Batch& batch);

    const size_t limit_;
    const std::shared_ptr<File> file_;  // the job's, while there is one
    std::vector<std::string> records_;
    size_t waiting_ = 0;  // bytes: of the records and of the job
    std::string error_;
    const milliseconds gather_;
    Timer gather_timer_;
    Background background_;
};

}  // namespace node

#endif
