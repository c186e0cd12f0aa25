// SPDX-License-Identifier: MIT
#include "Vitals.h"

#include <unistd.h>

#include <fstream>
#include <sstream>

namespace node {

namespace {

std::string folderOf(pid_t pid) {
    return "/proc/" + std::to_string(pid) + "/";
}

// The number behind a name at the beginning of a line; 0 when there is none.
uint64_t field(const std::string& path, const std::string& name) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name))
            return std::strtoull(line.c_str() + name.size(), nullptr, 10);
    }
    return 0;
}

}  // namespace

std::optional<ProcessVitals> vitalsOf(pid_t pid, const std::string& name) {
    std::ifstream file(folderOf(pid) + "stat");
    std::string line;
    std::getline(file, line);
    const size_t behind_name = line.rfind(')');
    if (behind_name == line.npos)
        return std::nullopt;
    // Fields 3 to 24: state, ten numbers, then user and system time, ..., resident pages.
    std::istringstream fields(line.substr(behind_name + 1));
    std::string state;
    std::string skipped;
    uint64_t user = 0;
    uint64_t system = 0;
    uint64_t pages = 0;
    fields >> state;
    for (int i = 4; i <= 13; ++i)
        fields >> skipped;
    fields >> user >> system;
    for (int i = 16; i <= 23; ++i)
        fields >> skipped;
    fields >> pages;
    if (!fields || state == "Z" || state == "X")
        return std::nullopt;
    ProcessVitals vitals;
    vitals.name = name;
    vitals.pid = pid;
    vitals.memory = pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    vitals.cpu_seconds =
        static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    vitals.io_known =
        std::ifstream(folderOf(pid) + "io").get() != std::ifstream::traits_type::eof();
    vitals.read = field(folderOf(pid) + "io", "rchar:");
    vitals.written = field(folderOf(pid) + "io", "wchar:");
    vitals.switches = field(folderOf(pid) + "status", "voluntary_ctxt_switches:");
    return vitals;
}

std::vector<pid_t> childrenOf(pid_t pid) {
    const std::string number = std::to_string(pid);
    std::ifstream file(folderOf(pid) + "task/" + number + "/children");
    std::vector<pid_t> children;
    for (pid_t child = 0; file >> child;)
        children.push_back(child);
    return children;
}

}  // namespace node
