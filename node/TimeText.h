// SPDX-License-Identifier: MIT
// Moments as people, file names and JSON have them: UTC, with milliseconds.
#ifndef TOLVANEV_NODE_TIME_TEXT_H
#define TOLVANEV_NODE_TIME_TEXT_H

#include <string>

#include "Loop.h"

namespace node {

std::string isoTime(SystemTime time);   // "2025-03-04T14:03:27.045Z"
std::string fileTime(SystemTime time);  // "20250304T140327.045Z": sorts by time, as names of files
std::string secondsText(double seconds);  // "1.230", whatever the locale

}  // namespace node

#endif
