// SPDX-License-Identifier: MIT
// Counts the heap allocations of one process: preload it, and name the report in the environment
// variable MALLOC_COUNT_REPORT. When the process exits, the report holds two numbers: allocations,
// and the largest number of bytes alive at once. Processes that it starts are not counted.
#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

// Names of glibc, whose headers' parameters have none.
// NOLINTBEGIN(bugprone-reserved-identifier, readability-inconsistent-declaration-parameter-name)

// The allocator behind what is counted here.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);
}

namespace {

std::atomic<unsigned long> allocations{0};
std::atomic<unsigned long> alive{0};  // bytes
std::atomic<unsigned long> peak{0};   // bytes

void* counted(void* block) {
    if (block) {
        ++allocations;
        const unsigned long now = alive += malloc_usable_size(block);
        if (now > peak)
            peak = now;
    }
    return block;
}

void gone(void* block) {
    if (block)
        alive -= malloc_usable_size(block);
}

__attribute__((constructor)) void begin() {
    unsetenv("LD_PRELOAD");
}

__attribute__((destructor)) void finish() {
    const unsigned long count = allocations;
    FILE* const report = fopen(getenv("MALLOC_COUNT_REPORT"), "w");
    if (!report || fprintf(report, "%lu %lu\n", count, peak.load()) < 0 || fclose(report) != 0)
        perror("MALLOC_COUNT_REPORT");
}

}  // namespace

extern "C" {

void* malloc(size_t size) noexcept {
    return counted(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) noexcept {
    return counted(__libc_calloc(count, size));
}

void* realloc(void* block, size_t size) noexcept {
    gone(block);
    return counted(__libc_realloc(block, size));
}

void free(void* block) noexcept {
    gone(block);
    __libc_free(block);
}
}

// NOLINTEND(bugprone-reserved-identifier, readability-inconsistent-declaration-parameter-name)
