// SPDX-License-Identifier: Apache-2.0
// Holds the written-out search for the appraisal record against the standard matcher.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Vestrel::Tests {

// Whether both find the same: match or none, and the place and length of every group.
bool searchesAgree(std::string_view line);

struct Comparison {
    std::uint64_t cases = 0;
    std::uint64_t matches = 0;
    std::optional<std::string> difference; // the first line on which they differ
};

// Stops at the first difference.
Comparison compareOnRandomLines(std::uint64_t cases, std::uint64_t seed);

// As the text of a C string literal.
std::string escaped(std::string_view bytes);

} // namespace Vestrel::Tests
