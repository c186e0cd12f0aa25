// SPDX-License-Identifier: MIT
#include "Flood.h"

#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;

constexpr uint32_t SEND_AT_ONCE = 32;     // frames: 10 KB, which loopback moves in one segment
constexpr uint32_t RENEWAL_SUPPLY = 128;  // frames: passes of some milliseconds
constexpr uint32_t WIDER = 4;             // frames more in flight after a standstill
constexpr uint32_t WINDOW_MOST = 1000;    // frames: fewer than the limit's rings hold
constexpr int STANDSTILL_MS = 5;          // a bridge moves only when it gets a frame
constexpr auto QUIET = 80ms;              // a pass without input waits 100 ms for one
constexpr auto PAUSE = 90ms;              // and then adds silence
constexpr auto SILENCE = 20s;             // of a program that is given up; valgrind is slow
constexpr uint64_t LAST_OUT = 64;         // frames of silence that move the last ones out, and more

// True while the peer of this IPv4 connection, on the same machine, has not read all that came.
bool unreadByPeer(int socket) {
    sockaddr_in peer{};
    socklen_t size = sizeof(peer);
    if (getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) != 0)
        throw std::runtime_error("the program has left");
    std::ifstream table("/proc/net/tcp");
    for (std::string line; std::getline(table, line);) {
        constexpr unsigned ESTABLISHED = 1;
        unsigned port = 0;
        unsigned state = 0;
        unsigned unread = 0;
        // number: local address:port remote address:port state sending:unread
        if (std::sscanf(line.c_str(), " %*d: %*x:%x %*x:%*x %x %*x:%x", &port, &state, &unread) ==
                3 &&
            port == ntohs(peer.sin_port) && state == ESTABLISHED)
            return unread > 0;
    }
    return false;
}

// Frames that the peer's window has room for. The system would cut the next one where that ends,
// and the bridge take either piece for a frame.
uint32_t roomAtPeer(int socket) {
    tcp_info info{};
    socklen_t size = sizeof(info);
    int under_way = 0;  // bytes that are not acknowledged yet
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
        ioctl(socket, SIOCOUTQ, &under_way) != 0)
        throw std::runtime_error("the connection tells nothing of itself");
    if (size <= offsetof(tcp_info, tcpi_snd_wnd))  // under an emulator
        return unreadByPeer(socket) ? 0 : SEND_AT_ONCE;
    const auto used = static_cast<uint32_t>(under_way);
    constexpr uint32_t FRAME = sizeof(NumberedFrame);
    return info.tcpi_snd_wnd > used ? (info.tcpi_snd_wnd - used) / FRAME : 0;
}

std::ostream& operator<<(std::ostream& text, const StreamCheck::Gap& gap) {
    return text << "[" << gap.first << ", " << gap.next << "]";
}

template <typename Value>
void list(std::ostream& text, const char* name, const std::vector<Value>& values) {
    text << ", \"" << name << "\": [";
    for (size_t i = 0; i < values.size(); ++i)
        text << (i == 0 ? "" : ", ") << values[i];
    text << "]";
}

void describe(std::ostream& text, const char* name, const StreamCheck::Counts& counts) {
    text << ", \"" << name << "\": {\"live\": " << counts.live << ", \"silent\": " << counts.silent
         << ", \"markers\": " << counts.markers << ", \"noise\": " << counts.noise
         << ", \"renewals\": " << counts.renewals;
    list(text, "lost", counts.lost);
    text << "}";
}

}  // namespace

// Reads what there is; false: nothing.
bool Flood::Arrivals::fill(int fd) {
    const ssize_t count = read(fd, bytes.data() + used, bytes.size() - used);
    const int error = errno;
    if (count == 0)
        throw std::runtime_error("the program has closed a stream");
    if (count < 0 && error != EAGAIN)
        throw std::runtime_error("a stream cannot be read: " + systemErrorText(error));
    used += static_cast<size_t>(std::max<ssize_t>(count, 0));
    return count > 0;
}

template <typename Take>
void Flood::Arrivals::takeFrames(Take take) {
    size_t at = 0;
    for (; at + sizeof(NumberedFrame) <= used; at += sizeof(NumberedFrame)) {
        NumberedFrame frame;
        std::memcpy(&frame, bytes.data() + at, sizeof(frame));
        take(frame);
    }
    std::memmove(bytes.data(), bytes.data() + at, used - at);
    used -= at;
}

Flood::Flood(const Plan& plan)
    : plan_(plan),
      results_("results", model_, !plan.plain),
      returned_("returned frames", model_, false),
      window_(plan.window),
      moved_(Clock::now()) {
    const timeval patience{std::chrono::seconds(SILENCE).count(), 0};
    setsockopt(plan.voice, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
}

void Flood::run(const std::function<void()>& on_warm) {
    transmit(plan_.warmup);
    if (!plan_.pace_hz)
        settle();  // what is sent from now on is what is done from now on
    on_warm();
    begin_ = moved_ = Clock::now();
    frames_before_ = results_.counts().frames();
    transmit(plan_.frames);
    settle();
    end_ = moved_;
    if (plan_.drain)
        drain();
}

void Flood::transmit(uint32_t last) {
    if (plan_.pace_hz)
        pace(last);
    else
        flood(last);
}

void Flood::flood(uint32_t last) {
    while (sent_ < last) {
        const uint32_t fit = roomAtPeer(plan_.voice);
        send(std::min({fit, roomInWindow(), last - sent_, SEND_AT_ONCE}));
        const bool full = roomInWindow() == 0;
        if (!exchange(full ? STANDSTILL_MS : fit == 0 ? 1 : 0) && full)
            window_ = std::min(window_ + WIDER, WINDOW_MOST);
    }
}

void Flood::pace(uint32_t last) {
    const auto period = std::chrono::nanoseconds(1s) / plan_.pace_hz;
    for (auto due = Clock::now(); sent_ < last;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
        if (left.count() > 0) {
            exchange(static_cast<int>(left.count()));
            continue;
        }
        send(1);
        sent_at_ = Clock::now();
        due += period;
    }
}

uint32_t Flood::roomInWindow() const {
    const uint32_t in_flight = sent_ - std::max(returned_.last(), written_off_);
    return in_flight < window_ ? window_ - in_flight : 0;
}

// A renewal loses most of what is in flight, and nothing comes back while the engines start: some
// frames more are needed then, though not as many as have been lost.
void Flood::noteRenewals() {
    if (model_.renewals() == renewals_)
        return;
    renewals_ = model_.renewals();
    window_ = plan_.window;
    const uint32_t kept = plan_.window - std::min(plan_.window, RENEWAL_SUPPLY);
    written_off_ = std::max(written_off_, sent_ - std::min(sent_, kept));
}

void Flood::send(uint32_t count) {
    if (count == 0)
        return;
    const auto now = Clock::now();
    if (now - sent_at_ > PAUSE)
        pauses_.push_back(sent_ + 1);
    sent_at_ = now;
    NumberedFrame frames[SEND_AT_ONCE];
    for (uint32_t i = 0; i < count; ++i)
        frames[i] = numbered(++sent_);
    const size_t size = count * sizeof(NumberedFrame);
    if (::send(plan_.voice, frames, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size))
        throw std::runtime_error("frames cannot be sent");
}

// Waits for frames and takes them. Results are read behind the returned frames and looked at
// ahead of them: those with which a renewal was earned were written earlier than its noise.
bool Flood::exchange(int timeout_ms) {
    pollfd ready[2] = {{plan_.voice, POLLIN, 0}, {plan_.results, POLLIN, 0}};
    const auto moved = [this] {
        return results_.counts().frames() - results_.counts().silent + returned_.last();
    };
    const uint64_t before = moved();
    poll(ready, 2, timeout_ms);
    if (ready[0].revents)
        returned_bytes_.fill(plan_.voice);
    if (plan_.quick_ack && ready[0].revents) {
        const int on = 1;  // lasts for one acknowledgement or so
        setsockopt(plan_.voice, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof(on));
    }
    while (result_bytes_.fill(plan_.results))
        result_bytes_.takeFrames([this](const NumberedFrame& frame) { results_.take(frame); });
    noteRenewals();
    returned_bytes_.takeFrames([this](NumberedFrame& frame) { takeReturned(frame); });
    StreamCheck::compare(results_, returned_);
    const auto now = Clock::now();
    if (now - moved_ > SILENCE)
        throw std::runtime_error("the program is silent");
    if (moved() == before)
        return false;
    moved_ = now;
    return true;
}

// The newest frame sent is the one whose pass has brought this frame back.
void Flood::takeReturned(NumberedFrame& frame) {
    if (!plan_.plain)
        swapBytes(frame);
    if (plan_.negated) {
        for (int16_t& sample : frame.samples)
            sample = static_cast<int16_t>(-sample);
    }
    const uint64_t live = returned_.counts().live;
    returned_.take(frame);
    if (plan_.pace_hz && returned_.counts().live > live) {
        response_us_.push_back(
            std::chrono::duration<double, std::micro>(Clock::now() - sent_at_).count());
        lag_.push_back(sent_ - returned_.last());
    }
}

// Waits until the program has read all frames and returned those that it returns without further
// input: what a delay line holds, and what an engine has answered too late, stays inside.
void Flood::settle() {
    while ((returned_.last() < sent_ && Clock::now() - moved_ < QUIET) || unreadByPeer(plan_.voice))
        exchange(1);
}

// Without input the bridge adds a frame of silence each 100 ms.
void Flood::drain() {
    const uint64_t enough = results_.counts().silent + LAST_OUT;
    pauses_.push_back(sent_ + 1);
    while (std::min(results_.last(), returned_.last()) < sent_ &&
           results_.counts().silent < enough) {
        exchange(STANDSTILL_MS);
    }
    results_.finish(sent_);
    returned_.finish(sent_);
}

std::string Flood::report() const {
    std::ostringstream text;
    text << "{\"sent\": " << sent_
         << ", \"measured\": " << results_.counts().frames() - frames_before_
         << ", \"seconds\": " << std::chrono::duration<double>(end_ - begin_).count();
    describe(text, "results", results_.counts());
    describe(text, "returned", returned_.counts());
    list(text, "pauses", pauses_);
    list(text, "response_us", response_us_);
    list(text, "lag", lag_);
    text << "}";
    return text.str();
}
