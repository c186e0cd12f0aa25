// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_DESCRIPTOR_FLOOD_H
#define TOLVANEV_TESTS_DESCRIPTOR_FLOOD_H

#include <sys/select.h>
#include <unistd.h>

#include <vector>

#include "scoped_descriptor.h"

// While it lives, every new descriptor is one that select cannot watch.
class DescriptorFlood {
  public:
    DescriptorFlood() {
        while (filling_.empty() || (possible() && filling_.back().get() < FD_SETSIZE - 1))
            filling_.emplace_back(dup(STDERR_FILENO));
    }
    // False when this machine does not allow so many; the test is to be skipped then.
    bool possible() const { return filling_.back().get() != -1; }

  private:
    std::vector<ScopedDescriptor> filling_;
};

#endif
