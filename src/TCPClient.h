// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TCPCLIENT_H
#define TOLVANEV_TCPCLIENT_H

#include <cstdint>
#include <string>

// One outgoing IPv4 connection. Owned by the sound client link. Never throws: every outcome is a
// SocketStatus or a count of bytes, and the cause of a failure, but that of a write, is in the log.
//
// connect waits as long as the system's connect does, send while the socket's buffer is full,
// receive as long as it is told. A peer that closes does not change the state.
class TCPClient {
  public:
    TCPClient() = default;
    TCPClient(const TCPClient&) = delete;
    TCPClient& operator=(const TCPClient&) = delete;
    virtual ~TCPClient();  // disconnects

    int initialize();  // does nothing; 1
    // ip_addr: dotted quad, names are not looked up. An open connection is closed first.
    int connect(const std::string& ip_addr, uint32_t port);
    // One write of size bytes; returns how many were taken.
    int send(const char* data, uint32_t size);
    // Waits up to timeout ms, then reads once; returns the number of bytes.
    int receive(char* data, uint32_t size, uint32_t timeout);
    int disconnect();
    bool isConnect();

  private:
    [[maybe_unused]] uint32_t port_ = 0;  // never written
    int socket_fd_ = -1;                  // -1 = no socket yet
    bool is_connect_ = false;
    std::string ip_addr_;  // never written
};

#endif
