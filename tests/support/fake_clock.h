// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_FAKE_CLOCK_H
#define TOLVANEV_TESTS_FAKE_CLOCK_H

#include <ctime>
#include <string>

// While it lives, the two clock readings of the log stamp stand still: time() gives `seconds`,
// gettimeofday() the same second with `microseconds`. The local time zone is `zone`, in the form of
// the TZ variable. Afterwards clock and zone are the machine's again.
class FakeClock {
  public:
    explicit FakeClock(time_t seconds, long microseconds = 0, const char* zone = "UTC0");
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;
    ~FakeClock();

    // From now on gettimeofday() gives another second than time() does.
    void setPrecise(time_t seconds, long microseconds);

  private:
    bool had_zone_;
    std::string old_zone_;
};

#endif
