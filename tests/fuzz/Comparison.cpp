// SPDX-License-Identifier: Apache-2.0
// The comparison of the two matchers.
#include "tests/fuzz/Comparison.h"

#include "syslog/AppraisalPattern.h"
#include "tests/fuzz/AppraisalLines.h"

#include <cstdio>

namespace Vestrel::Tests {

namespace {

using Groups = Orvo::Regex::Groups;

const Orvo::Regex& definition() {
    static const Orvo::Regex regex = Orvo::Regex::compile(appraisalPattern);
    return regex;
}

// Equal texts at different places are a difference.
bool same(const Groups& a, const Groups& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i].data() != b[i].data() || a[i].size() != b[i].size()) {
            return false;
        }
    }
    return true;
}

bool agree(std::string_view line, bool& matches) {
    const auto expected = definition().searchByPattern(line);
    Groups found;
    matches = appraisalSearch(line, found);
    return matches == expected.has_value() && (!matches || same(found, *expected));
}

} // namespace

bool searchesAgree(std::string_view line) {
    bool matches = false;
    return agree(line, matches);
}

Comparison compareOnRandomLines(std::uint64_t cases, std::uint64_t seed) {
    AppraisalLines lines(seed);
    Comparison result;
    while (result.cases < cases && !result.difference) {
        const std::string line = lines.next();
        bool matches = false;
        if (!agree(line, matches)) {
            result.difference = line;
        }
        ++result.cases;
        result.matches += matches ? 1 : 0;
    }
    return result;
}

std::string escaped(std::string_view bytes) {
    std::string text = "\"";
    for (const char c : bytes) {
        const auto code = static_cast<unsigned char>(c);
        char octal[5];
        std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(code));
        const bool isPlain = code >= 0x20 && code < 0x7f && c != '"' && c != '\\';
        text += isPlain ? std::string(1, c) : std::string(octal);
    }
    return text + "\"";
}

} // namespace Vestrel::Tests
