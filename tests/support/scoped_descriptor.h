// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_SCOPED_DESCRIPTOR_H
#define TOLVANEV_TESTS_SCOPED_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

// Owns one descriptor; -1 = none.
class ScopedDescriptor {
  public:
    explicit ScopedDescriptor(int fd = -1) : fd_(fd) {}
    ScopedDescriptor(ScopedDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    ScopedDescriptor& operator=(ScopedDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~ScopedDescriptor() { reset(); }

    int get() const { return fd_; }

    void reset() {
        if (fd_ != -1)
            close(std::exchange(fd_, -1));
    }

  private:
    int fd_;
};

#endif
