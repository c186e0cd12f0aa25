// SPDX-License-Identifier: MIT
// Cuts bytes from a pipe into lines. A line that is too long is cut; one that stays unfinished, as
// the bridge's "Connecting to Server ... " while it waits, is handed on by flush.
#ifndef TOLVANEV_NODE_LINE_READER_H
#define TOLVANEV_NODE_LINE_READER_H

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace node {

class LineReader {
  public:
    static constexpr size_t LONGEST = 4096;  // bytes; the rest of a longer line is dropped

    using OnLine = std::function<void(const std::string& line)>;  // without its line feed
    explicit LineReader(OnLine on_line) : on_line_(std::move(on_line)) {}

    void read(std::string_view bytes) {
        while (!bytes.empty()) {
            const size_t end = bytes.find('\n');
            const std::string_view part = bytes.substr(0, end);
            line_.append(part.substr(0, LONGEST - std::min(line_.size(), LONGEST)));
            unfinished_ = true;
            if (end == std::string_view::npos)
                return;
            finish();
            bytes.remove_prefix(end + 1);
        }
    }
    // Takes what there is for a line; nothing when nothing is there.
    void flush() {
        if (unfinished_ && !line_.empty())
            finish();
    }
    bool unfinished() const { return unfinished_; }

  private:
    void finish() {
        unfinished_ = false;
        on_line_(std::exchange(line_, ""));
    }

    OnLine on_line_;
    std::string line_;
    bool unfinished_ = false;
};

}  // namespace node

#endif
