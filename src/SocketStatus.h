// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_SOCKETSTATUS_H
#define TOLVANEV_SOCKETSTATUS_H

#include "log.h"

// What the calls of TCPClient and TCPServer return: a count of bytes where there is one to tell,
// else one of these. The values are the links' to rely on; there is no -6.
enum SocketStatus : int {
    SOCKET_OK = 0,  // from receive also: nothing came, or the peer has closed
    SOCKET_INVALID_ARGUMENT = -1,
    SOCKET_NOT_CONNECTED = -2,  // or no socket or connection to be had
    SOCKET_CLOSE_FAILED = -3,
    SOCKET_WRITE_FAILED = -4,
    SOCKET_READ_FAILED = -5,
    SOCKET_WAIT_FAILED = -7,
};

// Logs text and the system's reason, taken from errno, right after a failed call; the status.
SocketStatus logSocketFailure(SocketStatus status, TLogLevel level, const char* text);

#endif
