// SPDX-License-Identifier: MIT
#include "SocketStatus.h"

#include <cerrno>

#include "common.h"

SocketStatus logSocketFailure(SocketStatus status, TLogLevel level, const char* text) {
    const int error_number = errno;  // composing the line may change it
    LOG_AT(level) << text << systemErrorText(error_number);
    return status;
}
