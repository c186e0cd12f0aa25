// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_TCP_SERVER_FIXTURE_H
#define TOLVANEV_TESTS_TCP_SERVER_FIXTURE_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "TCPServer.h"
#include "faults.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "loopback_peer.h"

// A server, and the peer that dials it.
class TCPServerTest : public testing::Test {
  protected:
    TCPServerTest() { faults::clear(); }  // finding a port took some calls

    // The peer dials as soon as the server listens, so that connect need not wait.
    void dialWhenListening(const char* address = "127.0.0.1") {
        faults::afterNext(faults::Call::LISTEN,
                          [this, address] { peer_ = LoopbackPeer::dial(port_, address); });
    }

    void connect() {
        dialWhenListening();
        ASSERT_EQ(server_.connect(port_), 0);
    }

    int send(const std::string& text) {
        return server_.send(text.data(), static_cast<uint32_t>(text.size()));
    }

    // What one receive returned, and what it put into received_.
    int receive(uint32_t timeout, size_t size = 64) {
        received_.assign(size, '-');
        const int count = server_.receive(received_.data(), static_cast<uint32_t>(size), timeout);
        received_.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return count;
    }

    // The next such call fails; so does the log's reading of the clock, with another errno.
    static void failNext(faults::Call call, int error, int skip = 0) {
        faults::failNext(call, error, {.skip = skip});
        faults::failNext(faults::Call::GETTIMEOFDAY, EXDEV);
    }

    std::vector<std::string> logged() const { return log_.lines(); }
    static std::vector<std::string> line(const std::string& text) { return {text}; }

    const uint16_t port_ = freePort();
    LoopbackPeer peer_;
    LogCapture log_;
    TCPServer server_;
    std::string received_;
};

#endif
