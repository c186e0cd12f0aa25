// SPDX-License-Identifier: MIT
// The entry that libFuzzer and replay.cpp call, and what entries need to say that something is
// wrong: an abort, which both report with the input that led to it.
#ifndef TOLVANEV_TESTS_FUZZ_H
#define TOLVANEV_TESTS_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#define REQUIRE(condition)                                                                 \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                       \
        }                                                                                  \
    } while (false)

#endif
