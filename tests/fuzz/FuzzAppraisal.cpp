// SPDX-License-Identifier: Apache-2.0
// vestrel-fuzz-appraisal CASES [SEED]: compares the written-out search with the standard matcher on
// random lines. Ends with status 1 and prints the line at the first difference.
#include "tests/fuzz/Comparison.h"

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace {

std::uint64_t number(const char* text) {
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text, &end, 10);
    if (*text == '\0' || *end != '\0') {
        std::fprintf(stderr, "not a number: %s\n", text);
        std::exit(2);
    }
    return value;
}

} // namespace

int main(int argc, char** argv) {
    using namespace Vestrel::Tests;
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: %s CASES [SEED]\n", argv[0]);
        return 2;
    }
    const std::uint64_t cases = number(argv[1]);
    const std::uint64_t seed = argc == 3 ? number(argv[2]) : std::random_device()();
    const Comparison comparison = compareOnRandomLines(cases, seed);
    std::printf("%llu cases, seed %llu: %llu matches, %llu differences\n",
                static_cast<unsigned long long>(comparison.cases),
                static_cast<unsigned long long>(seed),
                static_cast<unsigned long long>(comparison.matches),
                static_cast<unsigned long long>(comparison.difference ? 1 : 0));
    if (comparison.difference) {
        std::printf("%s\n", escaped(*comparison.difference).c_str());
        return 1;
    }
    return 0;
}
