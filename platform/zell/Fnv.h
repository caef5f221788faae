// SPDX-License-Identifier: Apache-2.0
// The FNV-1a hash, for values that must stay the same from build to build.
#pragma once

#include <cstdint>
#include <string_view>

namespace Zell {

inline constexpr std::uint32_t fnvStart = 2166136261U;

constexpr std::uint32_t fnv1a(std::string_view text, std::uint32_t hash = fnvStart) {
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    }
    return hash;
}

} // namespace Zell
