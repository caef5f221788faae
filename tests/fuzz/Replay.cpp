// SPDX-License-Identifier: Apache-2.0
// Runs a fuzzer's entry on the files of directories, without the fuzzing engine.
#include "tests/fuzz/Fuzz.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<char> bytesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// On the heap and of exactly that size, so that a sanitizer sees every step beyond it.
void run(std::vector<char> bytes) {
    bytes.shrink_to_fit();
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv) {
    std::size_t inputs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::fprintf(stderr, "%s\n", entry.path().c_str()); // the last one is the culprit
            run(bytesOf(entry.path()));
            ++inputs;
        }
    }
    run({});
    if (inputs == 0) {
        std::fputs("no inputs: the names of directories are wanted\n", stderr);
        return 1;
    }
    return 0;
}
