// SPDX-License-Identifier: MIT
#include "Child.h"

#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "BridgeCommand.h"

namespace node {

namespace {

constexpr milliseconds REST_PERIOD{50};
enum PipeEnd { READ_END, WRITE_END };

// Our end does not block, the child's does. Closes what nobody has taken.
class PipePair {
  public:
    PipePair(PipeEnd ours, const std::string& what) : ours_(ours) {
        check(uv_pipe(ends_.data(), ours == READ_END ? UV_NONBLOCK_PIPE : 0,
                      ours == WRITE_END ? UV_NONBLOCK_PIPE : 0),
              what);
    }
    PipePair(const PipePair&) = delete;
    PipePair& operator=(const PipePair&) = delete;
    ~PipePair() {
        for (const uv_file end : ends_) {
            if (end >= 0)
                close(end);
        }
    }
    uv_file takeOurs() { return std::exchange(ends_[ours_], -1); }
    uv_file theirs() const { return ends_[1 - ours_]; }

  private:
    const PipeEnd ours_;
    std::array<uv_file, 2> ends_{-1, -1};
};

struct PendingWrite {
    uv_write_t request{};
    std::string bytes;
};

std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> list;
    list.reserve(words.size() + 1);
    for (std::string& word : words)
        list.push_back(word.data());
    list.push_back(nullptr);
    return list;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& more) {
    std::vector<std::string> all;
    for (char** entry = environ; *entry; ++entry) {
        const std::string_view name = std::string_view(*entry).substr(0, strcspn(*entry, "=") + 1);
        // Of two with one name programs would take the first, shells the last.
        if (std::ranges::none_of(more, [&](const auto& one) { return one.starts_with(name); }))
            all.emplace_back(*entry);
    }
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

// What starts it would begin, and only then end with a status.
void requireProgram(const std::string& name) {
    if (!findProgram(name).empty())
        return;
    const bool there = name.find('/') != name.npos && access(name.c_str(), F_OK) == 0;
    throw NodeError(name + ": " + strerror(there ? EACCES : ENOENT));
}

bool anyLeft(pid_t group) {
    return kill(-group, 0) == 0 || errno == EPERM;
}

}  // namespace

std::string Ending::text() const {
    if (signal == 0)
        return "status " + std::to_string(status);
    const char* const name = sigabbrev_np(signal);
    return name ? std::string("SIG") + name : "signal " + std::to_string(signal);
}

Reaper::Reaper(Loop& loop, std::function<void(const std::string&)> complain)
    : complain_(std::move(complain)), watch_(loop, SIGCHLD, [this] { collect(); }) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

// libuv waits for the processes that it has started, one by one, and for no other. So this takes
// strays until it meets one of those; their own exit calls again for what stood behind it.
void Reaper::collect() {
    siginfo_t info{};
    while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0 &&
           !children_.contains(info.si_pid)) {
        const pid_t group = getpgid(info.si_pid);
        int status = 0;
        waitpid(info.si_pid, &status, 0);
        Ending ending{info.si_pid};
        if (WIFSIGNALED(status))
            ending.signal = WTERMSIG(status);
        else
            ending.status = WEXITSTATUS(status);
        const auto owner = groups_.find(group);
        if (owner != groups_.end())
            owner->second->events_.on_stray(ending);
        info.si_pid = 0;
    }
    std::vector<Child*> children;
    for (const auto& [group, child] : groups_)
        children.push_back(child);
    for (Child* const child : children) {
        if (groups_.contains(child->pid_) && groups_[child->pid_] == child)
            child->lookForRest();
    }
}

Child::Child(Loop& loop, Reaper& reaper, const std::vector<std::string>& words,
             const std::vector<std::string>& environment, ChildEvents events)
    : reaper_(reaper), events_(std::move(events)), rest_timer_(loop, [this] { lookForRest(); }) {
    requireProgram(words.front());
    // What nobody asked for is not called.
    if (!events_.on_output)
        events_.on_output = [](std::string_view) {};
    if (!events_.on_errors)
        events_.on_errors = [](std::string_view) {};
    if (!events_.on_exit)
        events_.on_exit = [](const Ending&) {};
    if (!events_.on_stray)
        events_.on_stray = [](const Ending&) {};
    PipePair in(WRITE_END, words.front());
    PipePair out(READ_END, words.front());
    PipePair err(READ_END, words.front());
    input_.reset(new uv_pipe_t{});
    uv_pipe_init(loop.get(), input_.get(), 0);
    input_->data = this;
    uv_pipe_open(input_.get(), in.takeOurs());
    output_ = std::make_unique<PipeReader>(loop, out.takeOurs(), events_.on_output,
                                           events_.on_output_end);
    errors_ = std::make_unique<PipeReader>(loop, err.takeOurs(), events_.on_errors, nullptr);
    const int ends[] = {in.theirs(), out.theirs(), err.theirs()};
    start(loop, words, environment, ends);
}

void Child::start(Loop& loop, const std::vector<std::string>& words,
                  const std::vector<std::string>& environment, const int (&ends)[3]) {
    // A child that only reads its input would not notice our end while it waits for something
    // else: the bridge looks at it in its passes, which begin when both peers are there.
    std::vector<std::string> arguments = {"setpriv", "--pdeathsig", "SIGKILL", "--"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    std::vector<std::string> variables = environmentWith(environment);
    std::vector<char*> argument_list = pointers(arguments);
    std::vector<char*> variable_list = pointers(variables);
    std::array<uv_stdio_container_t, 3> streams{};
    for (size_t i = 0; i < streams.size(); ++i) {
        streams[i].flags = UV_INHERIT_FD;
        streams[i].data.fd = ends[i];
    }
    uv_process_options_t options{};
    options.file = arguments.front().c_str();
    options.args = argument_list.data();
    options.env = variable_list.data();
    options.flags = UV_PROCESS_DETACHED;
    options.stdio = streams.data();
    options.stdio_count = static_cast<int>(streams.size());
    options.exit_cb = [](uv_process_t* process, int64_t status, int signal) {
        if (auto* const child = static_cast<Child*>(process->data))
            child->exitedWith({process->pid, static_cast<int>(status), signal});
    };
    process_.reset(new uv_process_t{});  // uv_spawn makes it one that can be closed, in any case
    process_->data = this;
    const int result = uv_spawn(loop.get(), process_.get(), &options);
    // setpriv tells by its status and words when it does not find the program.
    check(result, result == UV_ENOENT ? arguments.front() : words.front());
    pid_ = process_->pid;
    reaper_.children_[pid_] = this;
    reaper_.groups_[pid_] = this;
}

Child::~Child() {
    if (pid_ == 0)
        return;
    reaper_.groups_.erase(pid_);
    reaper_.children_.erase(pid_);
    if (!gone_)
        kill(-pid_, SIGKILL);
}

void Child::signal(int number) {
    if (!exited_)
        kill(pid_, number);
}

void Child::signalGroup(int number) {
    if (gone_)
        return;
    kill(-pid_, number);
    if (number == SIGKILL && !killed_) {
        killed_ = Clock::now();
        rest_timer_.every(REST_PERIOD);
    }
}

bool Child::write(std::string bytes) {
    if (!input_ || closing_)
        return false;
    auto* const pending = new PendingWrite{{}, std::move(bytes)};
    pending->request.data = pending;
    uv_buf_t buffer =
        uv_buf_init(pending->bytes.data(), static_cast<unsigned>(pending->bytes.size()));
    const int result = uv_write(
        &pending->request, reinterpret_cast<uv_stream_t*>(input_.get()), &buffer, 1,
        [](uv_write_t* request, int) { delete static_cast<PendingWrite*>(request->data); });
    if (result < 0)
        delete pending;
    return result >= 0;
}

size_t Child::waitingInput() const {
    return input_ ? uv_stream_get_write_queue_size(reinterpret_cast<uv_stream_t*>(input_.get()))
                  : 0;
}

size_t Child::unreadInput() const {
    uv_os_fd_t fd = -1;
    int unread = 0;
    if (!input_ || uv_fileno(reinterpret_cast<uv_handle_t*>(input_.get()), &fd) < 0 ||
        ioctl(fd, FIONREAD, &unread) < 0)
        return 0;
    return static_cast<size_t>(unread);
}

void Child::closeInput() {
    if (!input_ || closing_)
        return;
    // Closed behind the last write, and not before; ours until then, since someone who neither
    // reads nor ends would keep it for ever.
    closing_ = true;
    auto* const request = new uv_shutdown_t{};
    const int result = uv_shutdown(
        request, reinterpret_cast<uv_stream_t*>(input_.get()), [](uv_shutdown_t* done, int) {
            if (auto* const child = static_cast<Child*>(done->handle->data))
                child->input_.reset();
            delete done;
        });
    if (result < 0) {
        delete request;
        input_.reset();
    }
}

void Child::exitedWith(const Ending& ending) {
    exited_ = true;
    reaper_.children_.erase(pid_);
    takeRest();
    events_.on_exit(ending);
    rest_timer_.every(REST_PERIOD);
    reaper_.collect();
}

// The end of a process may be known ahead of what it wrote last.
void Child::takeRest() {
    output_->takeRest();
    errors_->takeRest();
}

void Child::lookForRest() {
    if (gone_)
        return;
    if (!exited_ || anyLeft(pid_)) {
        if (!killed_ || Clock::now() - *killed_ < GIVE_UP)
            return;
        if (reaper_.complain_)
            reaper_.complain_("processes of group " + std::to_string(pid_) +
                              " cannot be killed or collected; going on without them");
    }
    gone_ = true;
    takeRest();
    rest_timer_.stop();
    reaper_.groups_.erase(pid_);
    const auto on_gone = events_.on_gone;
    if (on_gone)
        on_gone();  // may destroy this
}

}  // namespace node
