// SPDX-License-Identifier: MIT
#include "Metrics.h"

#include <filesystem>
#include <locale>
#include <sstream>
#include <utility>

#include "WholeFile.h"

namespace node {

namespace {

// Label values have three characters of their own.
std::string quoted(const std::string& value) {
    std::string text = "\"";
    for (const char c : value) {
        if (c == '\n') {
            text += "\\n";
            continue;
        }
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return text + '"';
}

// One metric after the other; all samples of one stand together.
class Page {
  public:
    Page() {
        text_.imbue(std::locale::classic());
        text_.precision(15);
    }

    Page& metric(const std::string& name, const char* type, const char* help) {
        name_ = "tolvanev_" + name;
        text_ << "# HELP " << name_ << ' ' << help << "\n# TYPE " << name_ << ' ' << type << '\n';
        return *this;
    }
    template <typename Value>
    Page& sample(Value value) {
        text_ << name_ << ' ' << value << '\n';
        return *this;
    }
    template <typename Value>
    Page& sample(const char* label, const std::string& of, Value value) {
        text_ << name_ << '{' << label << '=' << quoted(of) << "} " << value << '\n';
        return *this;
    }
    template <typename Value>
    Page& each(const std::vector<ProcessVitals>& processes, Value ProcessVitals::*value) {
        for (const ProcessVitals& process : processes)
            text_ << name_ << "{process=" << quoted(process.name) << ",pid=\"" << process.pid
                  << "\"} " << process.*value << '\n';
        return *this;
    }
    std::string text() const { return text_.str(); }

  private:
    std::ostringstream text_;
    std::string name_;
};

constexpr const char* COUNTER = "counter";
constexpr const char* GAUGE = "gauge";

void appendStream(Page& page, const Status& status) {
    page.metric("frames_total", COUNTER, "Frames of the bridge, by type.")
        .sample("type", "data", status.data_frames)
        .sample("type", "start", status.start_frames)
        .sample("type", "end", status.end_frames)
        .sample("type", "tof", status.tof_frames)
        .sample("type", "eof", status.eof_frames);
    page.metric("frame_rate", GAUGE, "Frames of the last second.").sample(status.rate);
    if (status.frame_age)
        page.metric("frame_age_seconds", GAUGE, "Time since the last frame of this run.")
            .sample(*status.frame_age);
    page.metric("gaps_total", COUNTER, "Times without a frame for more than half a second.")
        .sample(status.gaps);
    page.metric("resyncs_total", COUNTER, "Times that the bridge's bytes were no frame.")
        .sample(status.resyncs);
    page.metric("resync_bytes_total", COUNTER, "Bytes dropped to find the next frame.")
        .sample(status.resync_bytes);
    page.metric("utterances_total", COUNTER, "Utterances, by their beginning.")
        .sample(status.utterances);
    page.metric("speech", GAUGE, "1 while someone speaks.").sample(status.speech ? 1 : 0);
    page.metric("play_sound", GAUGE, "1 while the bridge is told that a sound plays.")
        .sample(status.play_sound ? 1 : 0);
}

void appendProcesses(Page& page, const std::vector<ProcessVitals>& processes) {
    if (processes.empty())
        return;
    page.metric("process_resident_memory_bytes", GAUGE, "Memory of a process.")
        .each(processes, &ProcessVitals::memory);
    page.metric("process_cpu_seconds_total", COUNTER, "Time that a process has computed.")
        .each(processes, &ProcessVitals::cpu_seconds);
    page.metric("process_read_bytes_total", COUNTER, "Bytes that a process has read.")
        .each(processes, &ProcessVitals::read);
    page.metric("process_written_bytes_total", COUNTER, "Bytes that a process has written.")
        .each(processes, &ProcessVitals::written);
    page.metric("process_context_switches_total", COUNTER, "Times that a process has waited.")
        .each(processes, &ProcessVitals::switches);
}

std::string temporaryFor(const std::string& path) {
    const std::filesystem::path whole(path);
    std::string name = ".";
    name.append(whole.filename().string()).append(".new");
    return (whole.parent_path() / name).string();
}

}  // namespace

std::string metricsOf(const Status& status) {
    Page page;
    page.metric("state", GAUGE, "1 for the node's present state, 0 for the others.");
    for (const State state :
         {State::STARTING, State::CONNECTING, State::STREAMING, State::RESTARTING, State::STOPPING})
        page.sample("state", nameOf(state), state == status.state ? 1 : 0);
    page.metric("runs_total", COUNTER, "Starts of the bridge.").sample(status.run);
    page.metric("restarts_total", COUNTER, "Starts of the bridge behind the first.")
        .sample(status.restarts);
    page.metric("run_seconds", GAUGE, "Time since the present run began.")
        .sample(status.run_seconds);
    appendStream(page, status);
    if (!status.dropped.empty()) {
        page.metric("dropped_total", COUNTER, "Records that an output could not hand on.");
        for (const auto& [output, count] : status.dropped)
            page.sample("output", output, count);
    }
    appendProcesses(page, status.processes);
    return page.text();
}

Metrics::Metrics(Loop& loop, const Log& log, const MetricsOptions& options, GetStatus status)
    : path_(options.path),
      temporary_(temporaryFor(options.path)),
      status_(std::move(status)),
      warnings_(loop, log, "metrics", "file"),
      background_(loop),
      timer_(loop, [this] {
          if (!background_.busy())
              write(status_());
      }) {
    const std::string error = writeWhole(temporary_, path_, metricsOf({}), Durable::NO);
    if (!error.empty())
        throw NodeError(path_ + ": " + error);
    timer_.every(options.period);
}

void Metrics::write(const Status& status) {
    const auto error = std::make_shared<std::string>();
    background_.run(
        [error, temporary = temporary_, path = path_, text = metricsOf(status)] {
            *error = writeWhole(temporary, path, text, Durable::NO);
        },
        [this, error] {
            if (std::exchange(last_, false))
                writeLast();
            if (error->empty())
                warnings_.worked();
            else
                warnings_.failed(path_ + ": " + *error);
        });
}

void Metrics::finish() {
    timer_.stop();
    if (background_.busy())
        last_ = true;
    else
        writeLast();
}

void Metrics::writeLast() {
    Status status = status_();
    status.state = State::STOPPING;
    write(status);
}

}  // namespace node
