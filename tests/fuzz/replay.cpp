// SPDX-License-Identifier: MIT
// Runs a fuzz entry on each file named on the command line: for compilers without libFuzzer, and
// to look at one input in a debugger.
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.h"

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        if (!file) {
            fprintf(stderr, "%s: cannot be read\n", argv[i]);
            return 1;
        }
        const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    printf("%d inputs\n", argc - 1);
    return argc > 1 ? 0 : 1;  // a corpus that is not found proves nothing
}
