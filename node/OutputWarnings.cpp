// SPDX-License-Identifier: MIT
#include "OutputWarnings.h"

#include <utility>

namespace node {

namespace {

constexpr std::chrono::seconds DROP_PAUSE{10};

}  // namespace

OutputWarnings::OutputWarnings(Loop& loop, const Log& log, std::string name, std::string record)
    : log_(log),
      name_(std::move(name)),
      record_(std::move(record)),
      pause_(loop, [this] { sayDropped(); }) {}

void OutputWarnings::failed(const std::string& text) {
    if (text == failure_)
        return;
    failure_ = text;
    log_.warning(name_ + ": " + text);
}

void OutputWarnings::worked() {
    if (failure_.empty())
        return;
    failure_.clear();
    log_.info(name_ + ": works again");
}

void OutputWarnings::dropped(uint64_t count) {
    total_ += count;
    if (count > 0 && !pause_.active())
        sayDropped();
}

void OutputWarnings::look(const Sink& sink) {
    const std::string error = sink.error();
    if (error.empty())
        worked();
    else
        failed(error);
    if (sink.dropped() > total_)
        dropped(sink.dropped() - total_);
}

// What is said may come back as a record of this very output: all is up to date by then.
void OutputWarnings::sayDropped() {
    if (total_ == said_)
        return;
    const uint64_t count = total_ - std::exchange(said_, total_);
    pause_.once(DROP_PAUSE);
    log_.warning(name_ + ": " + std::to_string(count) + " " + record_ + (count == 1 ? "" : "s") +
                 " dropped");
}

}  // namespace node
