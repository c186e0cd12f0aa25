// SPDX-License-Identifier: MIT
#include "BridgeCommand.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace node {

namespace {

std::string unusable(const std::string& path, int mode) {
    struct stat about {};
    if (stat(path.c_str(), &about) != 0 || access(path.c_str(), mode) != 0)
        return std::strerror(errno);
    if (S_ISDIR(about.st_mode))
        return "is a folder";
    return "";
}

bool sameFile(const std::string& one, const std::string& other) {
    struct stat first {};
    struct stat second {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

std::string BridgeCommand::option(const std::string& name, char letter,
                                  const std::string& initial) const {
    const std::string dashed = "--" + name;
    const std::string shorter{'-', letter};
    std::string value = initial;
    for (size_t i = 1; i < words_.size(); ++i) {
        if (words_[i].starts_with(dashed + "="))
            value = words_[i].substr(dashed.size() + 1);
        else if ((words_[i] == dashed || words_[i] == shorter) && i + 1 < words_.size())
            value = words_[++i];
    }
    return value;
}

std::string BridgeCommand::problem() const {
    const std::string program = findProgram(words_.front());
    if (program.empty())
        return "the bridge " + words_.front() + " is not there, or not executable";
    struct File {
        const char* what;
        std::string path;
        const char* option;
        int mode;
    };
    const File files[] = {{"the bridge", program, "", X_OK},
                          {"the engine", engine(), " (-b)", X_OK},
                          {"the MMSE engine's settings file", mmseSettings(), " (-m)", R_OK},
                          {"the VAD engine's settings file", vadSettings(), " (-v)", R_OK}};
    for (const File& file : files) {
        const std::string why = unusable(file.path, file.mode);
        if (!why.empty())
            return std::string(file.what) + " " + file.path + file.option + ": " + why;
    }
    if (sameFile(program, engine()))
        return "the engine " + engine() + " (-b) is the bridge itself";
    return "";
}

std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos)
        return access(name.c_str(), X_OK) == 0 ? name : "";
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path ? path : "/usr/local/bin:/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
        if (unusable(candidate, X_OK).empty())
            return candidate;
    }
    return "";
}

}  // namespace node
