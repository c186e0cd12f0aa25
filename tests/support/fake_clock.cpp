// SPDX-License-Identifier: MIT
// time() and gettimeofday() of the whole test program are the ones defined here: a definition in
// the program goes before the one in the C library.
#include "fake_clock.h"

#include <stdlib.h>
#include <sys/time.h>

namespace {

bool faked = false;
time_t faked_seconds = 0;
timeval faked_precise{};

timespec machineClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

}  // namespace

extern "C" time_t time(time_t* result) noexcept {
    const time_t now = faked ? faked_seconds : machineClock().tv_sec;
    if (result)
        *result = now;
    return now;
}

extern "C" int gettimeofday(timeval* __restrict result, void* __restrict) noexcept {
    const timespec now = machineClock();
    *result = faked ? faked_precise : timeval{now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

FakeClock::FakeClock(time_t seconds, long microseconds, const char* zone)
    : had_zone_(getenv("TZ") != nullptr), old_zone_(had_zone_ ? getenv("TZ") : "") {
    setenv("TZ", zone, 1);
    tzset();
    faked_seconds = seconds;
    setPrecise(seconds, microseconds);
    faked = true;
}

FakeClock::~FakeClock() {
    faked = false;
    if (had_zone_)
        setenv("TZ", old_zone_.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

void FakeClock::setPrecise(time_t seconds, long microseconds) {
    faked_precise = {seconds, microseconds};
}
