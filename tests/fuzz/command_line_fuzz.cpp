// SPDX-License-Identifier: MIT
// Arbitrary words, one a line: parsing fails with at least one error text or succeeds with none,
// ports are in range, and the help text does not depend on what was given.
#include <sstream>
#include <string>
#include <vector>

#include "cmdline.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<std::string> words = {"bridge"};
    for (std::string line; std::getline(lines, line);)
        words.push_back(line);
    std::vector<const char*> argv;
    argv.reserve(words.size());
    for (const std::string& word : words)
        argv.push_back(word.c_str());

    cmdline::parser options;
    options.add("help", 'h', "print help");
    options.add<std::string>("text", 't', "a text", false, "default");
    options.add<unsigned short>("port", 'p', "a port", false, 5002);
    options.add<std::string>("must", 0, "a text that is required", true);
    const std::string help = options.usage();
    const bool good = options.parse(static_cast<int>(argv.size()), argv.data());
    REQUIRE(good == options.error_full().empty());
    REQUIRE(!good || options.exist("must"));
    REQUIRE(options.exist("port") || options.get<unsigned short>("port") == 5002);
    REQUIRE(options.usage() == "usage: bridge" + help.substr(std::string("usage: ").size()));
    return 0;
}
