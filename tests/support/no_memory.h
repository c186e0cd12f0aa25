// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_NO_MEMORY_H
#define TOLVANEV_TESTS_NO_MEMORY_H

// While it lives, the test program's own code gets no memory from the heap: std::bad_alloc. The
// linker leads operator new through no_memory.cpp; what libraries allocate inside does not count.
class NoMemory {
  public:
    NoMemory();
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;

    // How often memory was asked for since.
    int asked() const;
};

#endif
