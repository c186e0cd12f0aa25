// SPDX-License-Identifier: MIT
// The event loop and the handles that live on it, as objects that clean up after themselves. libuv
// does the work: it is in both Debian releases and has processes, pipes, timers, signals, sockets
// and background work in one library, which asio, the other candidate, has not (no processes).
//
// One thread runs the loop and everything here; only the job of a Background runs elsewhere. A
// handle's destructor may be called from any callback, also its own: no callback comes after it.
#ifndef TOLVANEV_NODE_LOOP_H
#define TOLVANEV_NODE_LOOP_H

#include <uv.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace node {

using Clock = std::chrono::steady_clock;
using SystemTime = std::chrono::system_clock::time_point;
using std::chrono::milliseconds;

// What stops the node, or one of its parts; the text names the thing and says why.
class NodeError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Throws a NodeError "WHAT: the system's text" when libuv returned an error.
void check(int result, const std::string& what);

// libuv frees nothing before the loop has seen the handle close.
template <typename T>
struct CloseHandle {
    void operator()(T* handle) const {
        handle->data = nullptr;
        uv_close(reinterpret_cast<uv_handle_t*>(handle),
                 [](uv_handle_t* closed) { delete reinterpret_cast<T*>(closed); });
    }
};
template <typename T>
using Handle = std::unique_ptr<T, CloseHandle<T>>;

// Outlives all that is made on it.
class Loop {
  public:
    Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    ~Loop();  // waits for handles to close, and for background jobs under way

    void run();   // until stop()
    void stop();  // from any callback
    // Takes what is ready, waiting for it if told so; for tests and for loops of others.
    void runOnce(bool wait);
    uv_loop_t* get() { return &loop_; }

  private:
    uv_loop_t loop_{};
};

class Timer {
  public:
    Timer(Loop& loop, std::function<void()> action);
    void once(milliseconds delay);  // takes the place of what it was set to
    void every(milliseconds period);
    void stop();
    bool active() const;

  private:
    std::function<void()> action_;
    Handle<uv_timer_t> handle_;
};

class SignalWatch {
  public:
    SignalWatch(Loop& loop, int number, std::function<void()> action);

  private:
    std::function<void()> action_;
    Handle<uv_signal_t> handle_;
};

// Reads a pipe to its end.
class PipeReader {
  public:
    using OnBytes = std::function<void(std::string_view)>;
    // Owns fd from now on. on_end is called once, at the end of the pipe or at an error, which are
    // the same here: nothing more will come.
    PipeReader(Loop& loop, int fd, OnBytes on_bytes, std::function<void()> on_end);
    PipeReader(const PipeReader&) = delete;
    PipeReader& operator=(const PipeReader&) = delete;

    // Hands on at once what is in the pipe by now, but nothing that is written meanwhile.
    void takeRest();

  private:
    OnBytes on_bytes_;
    std::function<void()> on_end_;
    std::string buffer_;
    Handle<uv_pipe_t> handle_;
};

// Runs jobs that may wait for a disk, one at a time, on a thread of libuv's pool. The job must own
// what it touches. done runs on the loop, unless this object is gone by then.
class Background {
  public:
    explicit Background(Loop& loop) : loop_(loop) {}
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;
    ~Background();

    bool busy() const { return work_ != nullptr; }
    void run(std::function<void()> job, std::function<void()> done);  // only when not busy

  private:
    struct Work;
    Loop& loop_;
    Work* work_ = nullptr;  // null = nothing under way; frees itself when it is done
};

}  // namespace node

#endif
