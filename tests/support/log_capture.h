// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_LOG_CAPTURE_H
#define TOLVANEV_TESTS_LOG_CAPTURE_H

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "log.h"

// While it lives, the log goes to memory at the given level; afterwards level and stream are what
// they were.
class LogCapture {
  public:
    explicit LogCapture(TLogLevel level = logDEBUG)
        : old_level_(FILELog::ReportingLevel()),
          old_stream_(Output2FILE::Stream()),
          stream_(open_memstream(&buffer_, &size_)) {
        FILELog::ReportingLevel() = level;
        Output2FILE::Stream() = stream_;
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() {
        FILELog::ReportingLevel() = old_level_;
        Output2FILE::Stream() = old_stream_;
        fclose(stream_);
        free(buffer_);
    }

    // Everything written since the beginning or the last forget, as written.
    std::string text() const {
        fflush(stream_);
        return {buffer_ + forgotten_, size_ - forgotten_};
    }

    // The same line by line, without hyphen and time stamp: "INFO: message".
    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        const std::string all = text();
        for (size_t begin = 0, end = 0; begin < all.size(); begin = end + 1) {
            end = std::min(all.find('\n', begin), all.size());
            const std::string line = all.substr(begin, end - begin);
            result.push_back(line.substr(std::min(line.size(), STAMP)));
        }
        return result;
    }

    void forget() {
        fflush(stream_);
        forgotten_ = size_;
    }

  private:
    static constexpr size_t STAMP = sizeof("- HH:MM:SS.mmm ") - 1;

    TLogLevel old_level_;
    FILE* old_stream_;
    char* buffer_ = nullptr;  // open_memstream's; valid after each flush
    size_t size_ = 0;
    size_t forgotten_ = 0;  // bytes ahead of what text shows
    FILE* stream_;
};

#endif
