// SPDX-License-Identifier: MIT
#include "Service.h"

#include <systemd/sd-daemon.h>

namespace node {

Service::Service(Loop& loop) : watchdog_(loop, [] { sd_notify(0, "WATCHDOG=1"); }) {
    uint64_t period_us = 0;
    if (sd_watchdog_enabled(0, &period_us) > 0)
        watchdog_.every(milliseconds(period_us / 2000));
}

void Service::ready() {
    sd_notify(0, "READY=1");
}

void Service::status(const std::string& text) {
    sd_notify(0, ("STATUS=" + text).c_str());
}

void Service::stopping() {
    sd_notify(0, "STOPPING=1");
}

}  // namespace node
