// SPDX-License-Identifier: MIT
#include "WavFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <unordered_map>
#include <utility>
#include <vector>

#include "TimeText.h"
#include "Wav.h"
#include "WholeFile.h"

namespace node {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view ENDING = ".wav";
constexpr std::string_view HALF = ".part";  // behind "." and the whole name
constexpr size_t OWN = 10000;               // names remembered
constexpr size_t NUMBER_WIDTH = 6;          // digits, at least

struct Kept {
    std::string name;
    uint64_t size = 0;
};

bool isHalfName(std::string_view name) {
    return name.starts_with('.') && name.ends_with(HALF) &&
           isWavName(name.substr(1, name.size() - 1 - HALF.size()));
}

// Those files of the folder whose names are of the form. What cannot be looked at is not there.
template <typename Form>
std::vector<Kept> filesOf(const std::string& folder, Form form) {
    std::vector<Kept> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        struct stat about {};
        if (form(name) && lstat(entry->path().c_str(), &about) == 0 && S_ISREG(about.st_mode))
            files.push_back({name, static_cast<uint64_t>(about.st_size)});
    }
    return files;
}

// Makes room for a file of this size. own: names that this node has written, oldest first; they are
// newer than all others, whatever a clock that was set meanwhile has made of their names. Returns
// what went wrong, as writeWhole does.
std::string makeRoom(const WavFilesOptions& options, uint64_t size,
                     const std::deque<std::string>& own) {
    if (options.max_files == 0 && options.max_bytes == 0)
        return "";
    std::vector<Kept> files = filesOf(options.folder, isWavName);
    std::unordered_map<std::string_view, size_t> age;
    for (size_t i = 0; i < own.size(); ++i)
        age[own[i]] = i + 1;
    std::ranges::sort(files, {}, [&age](const Kept& file) {
        const auto ours = age.find(file.name);
        return std::pair(ours == age.end() ? 0 : ours->second, file.name);
    });
    uint64_t bytes = size;
    for (const Kept& file : files)
        bytes += file.size;
    size_t count = files.size() + 1;
    for (const Kept& file : files) {
        if ((options.max_files == 0 || count <= options.max_files) &&
            (options.max_bytes == 0 || bytes <= options.max_bytes))
            return "";
        if (unlink((options.folder + "/" + file.name).c_str()) != 0 && errno != ENOENT)
            return file.name + ": " + uv_strerror(-errno);
        --count;
        bytes -= file.size;
    }
    return "";
}

}  // namespace

std::string wavName(const Utterance& utterance) {
    std::string number = std::to_string(utterance.number);
    if (number.size() < NUMBER_WIDTH)
        number.insert(0, NUMBER_WIDTH - number.size(), '0');
    return fileTime(utterance.start) + "-" + number + std::string(ENDING);
}

bool isWavName(std::string_view name) {
    constexpr std::string_view form = "dddddddTdddddd.dddZ-";  // behind the year's first digit
    const auto digit = [](char c) { return c >= '0' && c <= '9'; };
    if (name.size() < 1 + form.size() + NUMBER_WIDTH + ENDING.size() || !name.ends_with(ENDING) ||
        !digit(name.front()))
        return false;
    const std::string_view time = name.substr(1, form.size());
    const std::string_view number =
        name.substr(1 + form.size(), name.size() - 1 - form.size() - ENDING.size());
    return std::ranges::equal(time, form,
                              [&](char c, char of) { return of == 'd' ? digit(c) : c == of; }) &&
           std::ranges::all_of(number, digit);
}

WavFiles::WavFiles(Loop& loop, const Log& log, const WavFilesOptions& options, OnWritten on_written)
    : options_(options),
      on_written_(std::move(on_written)),
      warnings_(loop, log, "wav", "utterance"),
      background_(loop) {
    const char* const folder = options_.folder.c_str();
    struct stat about {};
    if ((mkdir(folder, 0755) != 0 && errno != EEXIST) || stat(folder, &about) != 0 ||
        access(folder, R_OK | W_OK | X_OK) != 0)
        check(-errno, options_.folder);
    if (!S_ISDIR(about.st_mode))
        check(-ENOTDIR, options_.folder);
    for (const Kept& half : filesOf(options_.folder, isHalfName))
        unlink((options_.folder + "/" + half.name).c_str());
}

void WavFiles::onUtterance(const UtterancePtr& utterance) {
    if (waiting_.size() >= options_.max_waiting) {
        warnings_.dropped();
        return;
    }
    waiting_.push_back(utterance);
    if (!background_.busy())
        start();
}

void WavFiles::start() {
    const UtterancePtr utterance = waiting_.front();
    waiting_.pop_front();
    const std::string name = wavName(*utterance);
    const std::string path = options_.folder + "/" + name;
    const auto error = std::make_shared<std::string>();
    background_.run(
        [error, utterance, options = options_, name, path, own = own_] {
            const std::string image = wavImage(*utterance);
            *error = makeRoom(options, image.size(), own);
            if (error->empty())
                *error = writeWhole(options.folder + "/." + name + std::string(HALF), path, image,
                                    Durable::YES);
        },
        [this, error, number = utterance->number, name, path] {
            if (error->empty()) {
                own_.push_back(name);
                if (own_.size() > OWN)
                    own_.pop_front();
            }
            if (!waiting_.empty())
                start();
            if (error->empty()) {
                warnings_.worked();
                if (on_written_)
                    on_written_(number, path);
            } else {
                warnings_.failed(options_.folder + ": " + *error);
                warnings_.dropped();
            }
        });
}

}  // namespace node
