// SPDX-License-Identifier: MIT
// A system that takes no signal handlers; linked into program_without_signals only.
#include <signal.h>

extern "C" sighandler_t __wrap_signal(int, sighandler_t);

sighandler_t __wrap_signal(int, sighandler_t) {
    return SIG_ERR;
}
