// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TCPSERVER_H
#define TOLVANEV_TCPSERVER_H

#include <cstdint>
#include <string>

// One incoming IPv4 connection: listens, accepts one peer, and talks to it. Owned by the voice
// server connector. Never throws: every outcome is a SocketStatus or a count of bytes, and the
// cause of a failure, but that of an accept, is in the log.
//
// connect waits at most five seconds for the peer, send while the socket's buffer is full, receive
// as long as it is told. A peer that closes does not change the state. The listening socket stays
// open beside the connection, so a second peer can connect but is never served.
class TCPServer {
  public:
    TCPServer() = default;
    TCPServer(const TCPServer&) = delete;
    TCPServer& operator=(const TCPServer&) = delete;
    virtual ~TCPServer();  // disconnects

    int initialize();  // does nothing; 1
    // Listens on all addresses; port 0 lets the system choose.
    int connect(uint32_t port);
    // One write of size bytes; returns how many were taken.
    int send(const char* data, uint32_t size);
    // Waits up to timeout ms, then reads once; returns the number of bytes.
    int receive(char* data, uint32_t size, uint32_t timeout);
    // Closes the peer and the listening socket. Harmless when repeated.
    int disconnect();
    bool isConnect();

  private:
    int listenOn(uint32_t port);
    int closeSocket(int& fd);

    [[maybe_unused]] uint32_t port_ = 0;  // never written
    int socket_fd_ = -1;                  // the peer; -1 = none
    int server_fd_ = -1;                  // the listening socket; -1 = none
    bool is_connect_ = false;             // a peer was accepted
    std::string ip_addr_;                 // never written
};

#endif
