// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_FILE_SIZE_LIMIT_H
#define TOLVANEV_TESTS_FILE_SIZE_LIMIT_H

#include <sys/resource.h>

// No file of this process grows beyond so many bytes: a disk that is full there. SIGXFSZ must be
// ignored.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit now{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &now);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }

  private:
    rlimit before_{};
};

#endif
