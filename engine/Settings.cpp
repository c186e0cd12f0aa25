// SPDX-License-Identifier: MIT
#include "Settings.h"

#include <ini.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#include "SettingsKeys.h"

namespace engine {

namespace {

// Feeds the file to libinih line by line. The library tells its handler no line numbers, so they
// are counted where it fetches the lines. No exception may cross the C library: both callbacks
// keep the first error and stop.
class Parser {
  public:
    Parser(const std::string& path, std::FILE* file) : path_(path), file_(file) {}

    Settings parse() {
        const int bad_line = ini_parse_stream(&Parser::fetchLine, this, &Parser::takeKey, this);
        if (std::ferror(file_))
            throw SettingsError(path_ + ": " + std::strerror(errno));
        // Lines that the library cannot split never come to the handler; it only numbers the first.
        if (bad_line > 0 && (error_.empty() || bad_line < error_line_))
            refuse(bad_line, "neither [section] nor key = value");
        if (error_.empty())
            checkRole();
        if (!error_.empty())
            throw SettingsError(error_);
        return settings_;
    }

  private:
    static char* fetchLine(char* buffer, int size, void* self) {
        return static_cast<Parser*>(self)->nextLine(buffer, size);
    }

    static int takeKey(void* self, const char* section, const char* key, const char* value) {
        return static_cast<Parser*>(self)->set(section, key, value) ? 1 : 0;
    }

    char* nextLine(char* buffer, int size) {
        if (!error_.empty() || !std::fgets(buffer, size, file_))
            return nullptr;
        ++line_;
        // The library would go on with the rest of a long line as with a line of its own.
        if (!std::strchr(buffer, '\n') && !std::feof(file_)) {
            refuse(line_, "line is longer than " + std::to_string(size - 2) + " characters");
            return nullptr;
        }
        return checkSection(buffer) ? buffer : nullptr;
    }

    // The library reports a section only with its first key; an empty one must be known as well.
    bool checkSection(const std::string& text) {
        const size_t close = text.find(']');
        if (text.front() != '[' || close == std::string::npos)
            return true;
        const std::string section = text.substr(1, close - 1);
        if (isSection(section))
            return true;
        refuse(line_, "section '" + section + "': unknown, there are engine, mmse and vad");
        return false;
    }

    bool set(const std::string& section, const std::string& key, const std::string& value) {
        if (!error_.empty())
            return false;
        const auto [first, is_new] = lines_.try_emplace({section, key}, line_);
        std::string problem;
        if (!is_new)
            problem = "already set in line " + std::to_string(first->second) +
                      " (an indented line continues the one above it)";
        else
            problem = setKey(settings_, section, key, value);
        if (!problem.empty())
            refuse(line_, "key '" + key + "': " + problem);
        return problem.empty();
    }

    void checkRole() {
        if (!lines_.contains({"engine", "role"}))
            return refuse(std::max(line_, 1), "key 'role': missing in section [engine]");
        // A key of the other role would silently have no effect.
        const std::string role = nameOf(settings_.role);
        for (const auto& [key, line] : lines_)
            if (key.first != "engine" && key.first != role)
                return refuse(line, "key '" + key.second + "': belongs to section [" + key.first +
                                        "], but the role is " + role);
    }

    void refuse(int line, const std::string& problem) {
        error_line_ = line;
        error_ = path_ + ":" + std::to_string(line) + ": " + problem;
    }

    const std::string path_;
    std::FILE* const file_;
    int line_ = 0;
    std::string error_;
    int error_line_ = 0;
    std::map<std::pair<std::string, std::string>, int> lines_;  // where each key was set
    Settings settings_;
};

}  // namespace

Settings loadSettings(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"),
                                                               &std::fclose);
    if (!file)
        throw SettingsError(path + ": " + std::strerror(errno));
    return Parser(path, file.get()).parse();
}

const char* nameOf(Role role) {
    return role == Role::MMSE ? "mmse" : "vad";
}

}  // namespace engine
