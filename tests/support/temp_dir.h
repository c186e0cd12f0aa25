// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_TEMP_DIR_H
#define TOLVANEV_TESTS_TEMP_DIR_H

#include <errno.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

// A fresh folder that goes with its owner, files and all.
class TempDir {
  public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "tolvanev_XXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::system_error(errno, std::generic_category(), name);
        path_ = name;
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        std::error_code ignored;  // a left-over folder fails no test
        std::filesystem::remove_all(path_, ignored);
    }

    std::string path(const std::string& name = {}) const { return (path_ / name).string(); }

    void write(const std::string& name, const std::string& content) const {
        std::ofstream(path_ / name, std::ios::binary) << content;
    }

    std::string read(const std::string& name) const {
        std::ifstream file(path_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    bool has(const std::string& name) const { return std::filesystem::exists(path_ / name); }

  private:
    std::filesystem::path path_;
};

#endif
