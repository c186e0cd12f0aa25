// SPDX-License-Identifier: MIT
// Counts the heap allocations of one process: preload it, and name the report in the environment
// variable MALLOC_COUNT_REPORT. When the process exits, the report holds two numbers: allocations,
// and the largest number of bytes alive at once. Processes that it starts are not counted.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

// glibc's own names of what is counted here.
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

char report[4096];

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
    if (const char* const path = getenv("MALLOC_COUNT_REPORT"))
        snprintf(report, sizeof(report), "%s", path);
    unsetenv("LD_PRELOAD");
}

__attribute__((destructor)) void finish() {
    char text[64];
    const int size = snprintf(text, sizeof(text), "%lu %lu\n", allocations.load(), peak.load());
    const int fd = open(report, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd == -1 || write(fd, text, static_cast<size_t>(size)) != size)
        perror(report);
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
