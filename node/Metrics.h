// SPDX-License-Identifier: MIT
// --metrics: a file in Prometheus' text format, renamed into place once a second, for a collector
// that reads files or a web server that hands them out. The metrics are a table in docs/node.md.
#ifndef TOLVANEV_NODE_METRICS_H
#define TOLVANEV_NODE_METRICS_H

#include "OutputWarnings.h"
#include "Status.h"

namespace node {

struct MetricsOptions {
    std::string path;
    milliseconds period{1000};
};

class Metrics : public Listener {
  public:
    using GetStatus = std::function<Status()>;
    // Throws a NodeError when the folder is none that files can be written to.
    Metrics(Loop& loop, const Log& log, const MetricsOptions& options, GetStatus status);

    // The last file says that the node is stopping, and stays.
    void finish() override;
    bool idle() const override { return !background_.busy() && !last_; }
    std::string name() const override { return warnings_.name(); }

  private:
    void write(const Status& status);
    void writeLast();

    const std::string path_;
    const std::string temporary_;
    const GetStatus status_;
    OutputWarnings warnings_;
    Background background_;
    Timer timer_;
    bool last_ = false;  // the last file is still to be begun
};

// The file's content.
std::string metricsOf(const Status& status);

}  // namespace node

#endif
