// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TCPCLIENT_H
#define TOLVANEV_TCPCLIENT_H

#include <cstdint>
#include <string>

// One outgoing IPv4 connection. Owned by the sound client link. Never throws: every outcome is a
// status code, and the cause of a failure is in the log.
//
//      0  success; from receive also: nothing came, or the peer has closed
//     -1  null buffer or size 0          -4  write failed
//     -2  not connected, or no socket    -5  read failed
//         or connection to be had        -7  the wait for data failed
//     -3  a close failed
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
