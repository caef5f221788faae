// SPDX-License-Identifier: Apache-2.0
// What every fuzzer has: its entry, called with each input, and the way it says that something is
// wrong. Linked with the fuzzing engine, or with Replay.cpp, which runs kept inputs only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Vestrel::Tests {

/// Ends the process, naming what should have held.
inline void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "fuzzer: not so: %s\n", what);
        std::abort();
    }
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

} // namespace Vestrel::Tests
