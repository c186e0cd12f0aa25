// SPDX-License-Identifier: MIT
#include "FileSink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace node {

namespace {

constexpr mode_t MODE = 0644;

std::string systemText(int error_number) {
    return uv_strerror(-error_number);
}

// Takes back what lies behind `end`, unless someone else has written there meanwhile.
void cut(int fd, off_t written_to, off_t end) {
    struct stat about {};
    if (fstat(fd, &about) == 0 && S_ISREG(about.st_mode) && about.st_size == written_to &&
        ftruncate(fd, end) == 0)
        lseek(fd, end, SEEK_SET);
}

}  // namespace

struct FileSink::File {
    int fd = -1;
    std::string path;

    File(int descriptor, std::string name) : fd(descriptor), path(std::move(name)) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (fd >= 0)
            close(fd);
    }

    // Who keeps log files renames them and expects a new one, as it does of other programs. Returns
    // the error number, 0 = all is well.
    int followName() {
        struct stat by_name {};
        struct stat ours {};
        if (path.empty() ||
            (fd >= 0 && stat(path.c_str(), &by_name) == 0 && fstat(fd, &ours) == 0 &&
             by_name.st_ino == ours.st_ino && by_name.st_dev == ours.st_dev))
            return 0;
        const int next =
            ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, MODE);
        if (next < 0)
            return errno;
        if (fd >= 0)
            close(fd);
        fd = next;
        return 0;
    }
};

struct FileSink::Batch {
    std::vector<std::string> records;
    size_t bytes = 0;
    size_t written = 0;  // records
    int error = 0;

    void writeTo(File& file) {
        error = file.followName();
        if (error != 0)
            return;
        std::string all;
        all.reserve(bytes);
        for (const std::string& record : records)
            all += record;
        size_t done = 0;
        while (done < all.size() && error == 0) {
            const ssize_t count = ::write(file.fd, all.data() + done, all.size() - done);
            if (count < 0 && errno != EINTR)
                error = errno;
            done += count > 0 ? static_cast<size_t>(count) : 0;
        }
        size_t whole = 0;  // bytes
        while (written < records.size() && whole + records[written].size() <= done)
            whole += records[written++].size();
        if (done == whole)
            return;
        const off_t end = lseek(file.fd, 0, SEEK_CUR);
        cut(file.fd, end, end - static_cast<off_t>(done - whole));
    }
};

FileSink::FileSink(Loop& loop, int fd, std::string path, size_t limit, milliseconds gather)
    : limit_(limit),
      file_(std::make_shared<File>(fd, std::move(path))),
      gather_(gather),
      gather_timer_(loop, [this] { start(); }),
      background_(loop) {}

bool FileSink::write(std::string record) {
    if (record.size() > limit_ - waiting_) {
        ++dropped_;
        changed();
        return false;
    }
    waiting_ += record.size();
    records_.push_back(std::move(record));
    startSoon();
    return true;
}

void FileSink::startSoon() {
    if (background_.busy() || records_.empty() || gather_timer_.active())
        return;
    if (gather_.count() > 0)
        gather_timer_.once(gather_);
    else
        start();
}

void FileSink::start() {
    const auto batch = std::make_shared<Batch>();
    batch->records = std::exchange(records_, {});
    batch->bytes = waiting_;
    background_.run([file = file_, batch] { batch->writeTo(*file); },
                    [this, batch] { finished(*batch); });
}

void FileSink::finished(const Batch& batch) {
    waiting_ -= batch.bytes;
    const uint64_t lost = batch.records.size() - batch.written;
    const std::string error = batch.error == 0 ? "" : systemText(batch.error);
    const bool news = lost > 0 || error != error_;
    dropped_ += lost;
    error_ = error;
    startSoon();
    if (news)
        changed();
}

}  // namespace node
