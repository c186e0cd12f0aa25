// SPDX-License-Identifier: MIT
#include "Vitals.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <string_view>

namespace node {

namespace {

// A file of /proc, at most so much of it; a look a second must cost next to nothing.
class ProcFile {
  public:
    ProcFile(pid_t pid, const char* name) {
        std::array<char, 64> path{};
        snprintf(path.data(), path.size(), "/proc/%d/%s", pid, name);
        const int fd = open(path.data(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return;
        const ssize_t count = read(fd, bytes_.data(), bytes_.size());
        close(fd);
        size_ = count > 0 ? static_cast<size_t>(count) : 0;
    }
    std::string_view text() const { return {bytes_.data(), size_}; }
    bool readable() const { return size_ > 0; }

    // The number behind "NAME:" at the beginning of a line; 0 when there is none.
    uint64_t field(std::string_view name) const {
        const std::string_view all = text();
        for (size_t at = 0; at < all.size(); at = all.find('\n', at) + 1) {
            if (all.substr(at).starts_with(name))
                return numberAt(all.substr(at + name.size()));
            if (all.find('\n', at) == all.npos)
                break;
        }
        return 0;
    }

    static uint64_t numberAt(std::string_view text) {
        text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
        uint64_t number = 0;
        std::from_chars(text.data(), text.data() + text.size(), number);
        return number;
    }

  private:
    std::array<char, 4096> bytes_;
    size_t size_ = 0;
};

// A field of /proc/PID/stat, counted from 1 as the manual does; rest begins with the third.
std::string_view statField(std::string_view rest, int number) {
    for (int i = 3; i < number; ++i)
        rest.remove_prefix(std::min(rest.find(' '), rest.size() - 1) + 1);
    return rest.substr(0, rest.find(' '));
}

}  // namespace

std::optional<ProcessVitals> vitalsOf(pid_t pid, const std::string& name) {
    constexpr int STATE = 3;
    constexpr int USER_TIME = 14;
    constexpr int SYSTEM_TIME = 15;
    constexpr int RESIDENT_PAGES = 24;
    const ProcFile stat(pid, "stat");
    const size_t behind_name = stat.text().rfind(") ");  // the name may hold anything
    if (behind_name == std::string_view::npos)
        return std::nullopt;
    const std::string_view fields = stat.text().substr(behind_name + 2);
    const std::string_view state = statField(fields, STATE);
    if (state == "Z" || state == "X")
        return std::nullopt;
    const auto number = [&](int field) { return ProcFile::numberAt(statField(fields, field)); };
    ProcessVitals vitals;
    vitals.name = name;
    vitals.pid = pid;
    vitals.memory = number(RESIDENT_PAGES) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    vitals.cpu_seconds = static_cast<double>(number(USER_TIME) + number(SYSTEM_TIME)) /
                         static_cast<double>(sysconf(_SC_CLK_TCK));
    const ProcFile io(pid, "io");
    vitals.io_known = io.readable();
    vitals.read = io.field("rchar:");
    vitals.written = io.field("wchar:");
    vitals.switches = ProcFile(pid, "status").field("voluntary_ctxt_switches:");
    return vitals;
}

std::vector<pid_t> childrenOf(pid_t pid) {
    const std::string name = "task/" + std::to_string(pid) + "/children";
    const ProcFile file(pid, name.c_str());
    std::vector<pid_t> children;
    std::string_view rest = file.text();
    while (const uint64_t child = ProcFile::numberAt(rest)) {
        children.push_back(static_cast<pid_t>(child));
        rest.remove_prefix(std::min(rest.find(' '), rest.size() - 1) + 1);
    }
    return children;
}

}  // namespace node
