// SPDX-License-Identifier: MIT
#include "Trial.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <thread>

namespace {

constexpr uint32_t SEND_AT_ONCE = 32;     // frames: 10 KB, which loopback moves in one segment
constexpr uint32_t RENEWAL_SUPPLY = 128;  // frames: passes of some milliseconds
constexpr int SILENCE_MS = 20000;         // of a program that is given up; valgrind is slow
constexpr int END_WAIT_S = 20;
constexpr auto SETTLE_STEP = std::chrono::milliseconds(1);
constexpr auto QUIET = std::chrono::milliseconds(300);

// Takes what has arrived, up to the room there is; false: nothing more now.
template <typename Receive>
bool fill(std::vector<char>& bytes, size_t& used, Receive receive) {
    const ssize_t count = receive(bytes.data() + used, bytes.size() - used);
    if (count > 0) {
        used += static_cast<size_t>(count);
        return true;
    }
    if (count == 0)
        throw std::runtime_error("the program has closed a stream");
    if (errno != EAGAIN)
        throw std::runtime_error("a stream cannot be read");
    return false;
}

// True while some of what was sent does not fit into the peer's window.
bool heldBack(int socket) {
    int bytes = 0;
    return ioctl(socket, SIOCOUTQNSD, &bytes) == 0 && bytes > 0;
}

// Hands out the whole frames and keeps the rest.
template <typename Take>
void takeFrames(std::vector<char>& bytes, size_t& used, Take take) {
    size_t at = 0;
    for (; at + sizeof(BenchFrame) <= used; at += sizeof(BenchFrame)) {
        BenchFrame frame;
        std::memcpy(&frame, bytes.data() + at, sizeof(frame));
        take(frame);
    }
    std::memmove(bytes.data(), bytes.data() + at, used - at);
    used -= at;
}

}  // namespace

Trial::Trial(const Plan& plan)
    : plan_(plan),
      peers_(plan.program),
      results_(model_, !plan.plain),
      returned_(model_, false),
      sent_at_(plan.pace_hz ? plan.frames + 1 : 0) {}

void Trial::run() {
    if (plan_.pace_hz)
        pace();
    else
        flood();
    endFigures();
    peers_.closeInput();
    ended_well_ = peers_.waitForEnd(END_WAIT_S);
}

void Trial::flood() {
    while (sent_ < plan_.frames) {
        // What is held back is sent later in other pieces, and a piece that ends amid a frame would
        // be taken for a whole one; so nothing is added to it.
        const bool held_back = heldBack(peers_.voice());
        if (const uint32_t room = roomInWindow(); room > 0 && !held_back)
            send(std::min({room, plan_.frames - sent_, SEND_AT_ONCE}));
        exchange(roomInWindow() == 0 ? SILENCE_MS : held_back ? 1 : 0);
    }
    settle();
}

// A frame of silence says that the program waited for a frame: the window was too small.
uint32_t Trial::roomInWindow() const {
    const auto window = static_cast<uint32_t>(plan_.window + returned_.silent_ - silent_before_);
    const uint32_t in_flight = sent_ - std::max(returned_.last(), written_off_);
    return in_flight < window ? window - in_flight : 0;
}

// A renewal loses most of what is in flight, and nothing comes back while the engines start: some
// frames more are needed then, though not as many as have been lost.
void Trial::noteRenewals() {
    if (model_.renewals() == renewals_)
        return;
    renewals_ = model_.renewals();
    silent_before_ = returned_.silent_;
    const uint32_t kept = plan_.window - std::min(plan_.window, RENEWAL_SUPPLY);
    written_off_ = std::max(written_off_, sent_ - std::min(sent_, kept));
}

void Trial::pace() {
    const auto period = std::chrono::nanoseconds(1000000000 / plan_.pace_hz);
    auto due = Clock::now();
    while (sent_ < plan_.frames) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
        if (left.count() > 0) {
            exchange(static_cast<int>(left.count()));
            continue;
        }
        send(1);
        sent_at_[sent_] = Clock::now();
        due += period;
    }
    settle();
}

// Waits until the program is done with all frames: it has read them, and those that its delay line
// holds stay there. One without a delay line may have read ahead of what it returns, so it also
// gets the time to return the rest; what an engine answers too late for its pass may still stay
// inside.
void Trial::settle() {
    auto quiet = SETTLE_STEP;  // for so long no frame has come back
    for (auto waited = SETTLE_STEP; true; waited += SETTLE_STEP, quiet += SETTLE_STEP) {
        const bool read = unreadBytes(peers_.voicePort()) == 0;
        const bool returned = !plan_.plain || returned_.last() == sent_ || quiet > QUIET;
        if (read && returned)
            break;
        if (waited.count() > SILENCE_MS)
            throw std::runtime_error("the program does not read");
        const uint32_t last = returned_.last();
        exchange(0);
        if (returned_.last() != last)
            quiet = {};
        std::this_thread::sleep_for(SETTLE_STEP);
    }
    exchange(0);
}

void Trial::send(uint32_t count) {
    BenchFrame frames[SEND_AT_ONCE];
    for (uint32_t i = 0; i < count; ++i)
        frames[i] = numbered(++sent_);
    const size_t size = count * sizeof(BenchFrame);
    if (::send(peers_.voice(), frames, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size))
        throw std::runtime_error("frames cannot be sent");
}

// Waits for frames and takes them. Results are read behind the returned frames and looked at
// ahead of them: those with which a renewal was earned were written earlier than its noise.
bool Trial::exchange(int timeout_ms) {
    pollfd ready[2] = {{peers_.voice(), POLLIN, 0}, {peers_.results(), POLLIN, 0}};
    const int count = poll(ready, 2, timeout_ms);
    if (count == 0 && timeout_ms == SILENCE_MS)
        throw std::runtime_error("the program is silent");
    if (count <= 0)
        return false;
    if (ready[0].revents)
        fill(returned_bytes_.bytes, returned_bytes_.used, [this](char* to, size_t room) {
            return recv(peers_.voice(), to, room, MSG_DONTWAIT);
        });
    if (plan_.quick_ack && ready[0].revents) {
        const int on = 1;  // lasts for one acknowledgement or so
        setsockopt(peers_.voice(), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof(on));
    }
    takeResults();
    takeReturned();
    return true;
}

void Trial::takeResults() {
    while (fill(result_bytes_.bytes, result_bytes_.used,
                [this](char* to, size_t room) { return read(peers_.results(), to, room); }))
        takeFrames(result_bytes_.bytes, result_bytes_.used,
                   [this](const BenchFrame& frame) { results_.take(frame); });
    noteRenewals();
    if (!measuring_ && results_.frames() >= plan_.warmup)
        beginFigures();
}

void Trial::takeReturned() {
    takeFrames(returned_bytes_.bytes, returned_bytes_.used, [this](BenchFrame& frame) {
        if (!plan_.plain)
            swapBytes(frame);
        const uint64_t live = returned_.live_;
        returned_.take(frame);
        if (plan_.pace_hz && returned_.live_ > live)
            noteDelay();
    });
}

// The newest frame sent is the one whose pass has brought this frame back.
void Trial::noteDelay() {
    const auto response = Clock::now() - sent_at_[sent_];
    response_us_.push_back(std::chrono::duration<double, std::micro>(response).count());
    lag_.push_back(sent_ - returned_.last());
}

void Trial::beginFigures() {
    measuring_ = true;
    begin_ = {figuresOf(peers_.pid(), plan_.program.engine), Clock::now(), results_.frames()};
}

void Trial::endFigures() {
    if (!measuring_)
        beginFigures();
    end_ = {figuresOf(peers_.pid(), plan_.program.engine), Clock::now(), results_.frames()};
}
