// SPDX-License-Identifier: MIT
#include "Loop.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace node {

namespace {

constexpr size_t READ_SIZE = 65536;  // bytes; what a pipe holds

template <typename T>
Handle<T> make() {
    return Handle<T>(new T{});
}

template <typename T>
uv_handle_t* plain(const Handle<T>& handle) {
    return reinterpret_cast<uv_handle_t*>(handle.get());
}

}  // namespace

void check(int result, const std::string& what) {
    if (result < 0)
        throw NodeError(what + ": " + uv_strerror(result));
}

Loop::Loop() {
    check(uv_loop_init(&loop_), "event loop");
}

Loop::~Loop() {
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
}

void Loop::run() {
    uv_run(&loop_, UV_RUN_DEFAULT);
}

void Loop::stop() {
    uv_stop(&loop_);
}

void Loop::runOnce(bool wait) {
    uv_run(&loop_, wait ? UV_RUN_ONCE : UV_RUN_NOWAIT);
}

Timer::Timer(Loop& loop, std::function<void()> action)
    : action_(std::move(action)), handle_(make<uv_timer_t>()) {
    uv_timer_init(loop.get(), handle_.get());
    handle_->data = this;
}

void Timer::once(milliseconds delay) {
    uv_update_time(handle_->loop);
    uv_timer_start(
        handle_.get(), [](uv_timer_t* timer) { static_cast<Timer*>(timer->data)->action_(); },
        static_cast<uint64_t>(delay.count()), 0);
}

void Timer::every(milliseconds period) {
    once(period);
    uv_timer_set_repeat(handle_.get(), static_cast<uint64_t>(period.count()));
}

void Timer::stop() {
    uv_timer_stop(handle_.get());
}

bool Timer::active() const {
    return uv_is_active(plain(handle_)) != 0;
}

SignalWatch::SignalWatch(Loop& loop, int number, std::function<void()> action)
    : action_(std::move(action)), handle_(make<uv_signal_t>()) {
    uv_signal_init(loop.get(), handle_.get());
    handle_->data = this;
    check(uv_signal_start(
              handle_.get(),
              [](uv_signal_t* watch, int) { static_cast<SignalWatch*>(watch->data)->action_(); },
              number),
          "signal " + std::to_string(number));
}

PipeReader::PipeReader(Loop& loop, int fd, OnBytes on_bytes, std::function<void()> on_end)
    : on_bytes_(std::move(on_bytes)), on_end_(std::move(on_end)), handle_(make<uv_pipe_t>()) {
    uv_pipe_init(loop.get(), handle_.get(), 0);
    check(uv_pipe_open(handle_.get(), fd), "pipe");
    buffer_.resize(READ_SIZE);
    handle_->data = this;
    uv_read_start(
        reinterpret_cast<uv_stream_t*>(handle_.get()),
        [](uv_handle_t* handle, size_t, uv_buf_t* room) {
            std::string& buffer = static_cast<PipeReader*>(handle->data)->buffer_;
            *room = uv_buf_init(buffer.data(), static_cast<unsigned>(buffer.size()));
        },
        [](uv_stream_t* stream, ssize_t count, const uv_buf_t* room) {
            auto* const reader = static_cast<PipeReader*>(stream->data);
            if (count > 0)
                return reader->on_bytes_({room->base, static_cast<size_t>(count)});
            if (count == 0)
                return;
            uv_read_stop(stream);
            if (reader->on_end_)
                std::exchange(reader->on_end_, nullptr)();
        });
}

void PipeReader::takeRest() {
    uv_os_fd_t fd = -1;
    int unread = 0;
    if (uv_fileno(plain(handle_), &fd) < 0 || ioctl(fd, FIONREAD, &unread) < 0)
        return;
    for (auto left = static_cast<size_t>(unread); left > 0;) {
        const ssize_t count = read(fd, buffer_.data(), std::min(left, buffer_.size()));
        if (count <= 0)
            return;
        left -= static_cast<size_t>(count);
        on_bytes_({buffer_.data(), static_cast<size_t>(count)});
    }
}

struct Background::Work {
    uv_work_t request{};
    std::function<void()> job;
    std::function<void()> done;
    Background* owner = nullptr;  // null = gone
};

Background::~Background() {
    if (work_)
        work_->owner = nullptr;
}

void Background::run(std::function<void()> job, std::function<void()> done) {
    auto work = std::make_unique<Work>();
    work->job = std::move(job);
    work->done = std::move(done);
    work->owner = this;
    work_ = work.release();
    work_->request.data = work_;
    uv_queue_work(
        loop_.get(), &work_->request,
        [](uv_work_t* request) { static_cast<Work*>(request->data)->job(); },
        [](uv_work_t* request, int) {
            const std::unique_ptr<Work> ended(static_cast<Work*>(request->data));
            if (!ended->owner)
                return;
            ended->owner->work_ = nullptr;
            ended->done();
        });
}

}  // namespace node
