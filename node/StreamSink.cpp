// SPDX-License-Identifier: MIT
#include "StreamSink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace node {

namespace {

constexpr std::chrono::seconds LOOK_PERIOD{1};

bool isSocket(int fd) {
    struct stat about {};
    return fstat(fd, &about) == 0 && S_ISSOCK(about.st_mode);
}

bool isFifo(int fd) {
    struct stat about {};
    return fstat(fd, &about) == 0 && S_ISFIFO(about.st_mode);
}

}  // namespace

StreamSink::StreamSink(Loop& loop, int fd, size_t limit)
    : loop_(loop), limit_(limit), look_timer_(loop, [] {}) {
    use(fd);
}

StreamSink::StreamSink(Loop& loop, std::string fifo, size_t limit)
    : loop_(loop),
      limit_(limit),
      fifo_(std::move(fifo)),
      look_timer_(loop, [this] { lookForReader(); }) {
    lookForReader();
}

StreamSink::~StreamSink() {
    poll_.reset();
    if (fd_ >= 0) {
        fcntl(fd_, F_SETFL, flags_);
        close(fd_);
    }
}

void StreamSink::use(int fd) {
    flags_ = fcntl(fd, F_GETFL);
    fd_ = fd;
    tells_its_end_ = !isSocket(fd);
    auto* const handle = new uv_poll_t{};
    const int result = uv_poll_init(loop_.get(), handle, fd);  // it does not block from now on
    if (result < 0) {
        delete handle;
        setError(uv_strerror(result));
        close(std::exchange(fd_, -1));
        return;
    }
    poll_.reset(handle);
    handle->data = this;
    watch();
}

// ENXIO: there is no reader.
void StreamSink::lookForReader() {
    const int fd = ::open(fifo_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const int error_number = fd < 0 ? errno : 0;
    if (fd >= 0 && !isFifo(fd)) {
        close(fd);
        setError("no FIFO any more");
    } else if (fd >= 0) {
        setError("");
        look_timer_.stop();
        use(fd);
    } else {
        setError(error_number == ENXIO ? "" : uv_strerror(-error_number));
    }
    if (fd_ < 0 && !look_timer_.active())
        look_timer_.every(LOOK_PERIOD);
}

bool StreamSink::write(std::string record) {
    if (fd_ < 0 && !fifo_.empty() && error_.empty())
        return false;  // nobody is there to miss it
    if (fd_ < 0 || record.size() > limit_ - waiting_) {
        ++dropped_;
        changed();
        return false;
    }
    waiting_ += record.size();
    records_.push_back(std::move(record));
    if (records_.size() == 1)
        flush();
    return fd_ >= 0;
}

void StreamSink::flush() {
    while (!records_.empty()) {
        const std::string& record = records_.front();
        const ssize_t count = ::write(fd_, record.data() + done_, record.size() - done_);
        const int error_number = count < 0 ? errno : 0;
        if (error_number == EINTR)
            continue;
        if (error_number == EAGAIN)
            break;
        if (count < 0)
            return lose(error_number);
        done_ += static_cast<size_t>(count);
        if (done_ < record.size())
            continue;
        waiting_ -= record.size();
        records_.pop_front();
        done_ = 0;
    }
    watch();
}

// A socket tells also that its peer sends no more, for as long as that is so: it is only watched
// while something waits.
void StreamSink::watch() {
    const int events = (records_.empty() ? 0 : UV_WRITABLE) | (tells_its_end_ ? UV_DISCONNECT : 0);
    if (events == 0) {
        uv_poll_stop(poll_.get());
        return;
    }
    uv_poll_start(poll_.get(), events, [](uv_poll_t* handle, int status, int happened) {
        auto* const sink = static_cast<StreamSink*>(handle->data);
        if (status < 0 || (happened & UV_DISCONNECT))
            sink->lose(EPIPE);
        else
            sink->flush();
    });
}

void StreamSink::lose(int error_number) {
    poll_.reset();
    fcntl(fd_, F_SETFL, flags_);
    close(std::exchange(fd_, -1));
    if (fifo_.empty())
        dropped_ += records_.size();
    records_.clear();
    done_ = waiting_ = 0;
    if (!fifo_.empty()) {
        look_timer_.every(LOOK_PERIOD);
        return;
    }
    error_ = uv_strerror(-error_number);
    changed();
}

void StreamSink::setError(const std::string& error) {
    if (error == error_)
        return;
    error_ = error;
    changed();
}

}  // namespace node
