// SPDX-License-Identifier: Apache-2.0
// Sorting of kernel lines.
#include "bench/Lines.h"

#include "syslog/AppraisalPattern.h"
#include "tests/fuzz/AppraisalLines.h"

namespace Vestrel::Bench {

namespace {

Kind kindOf(std::string_view line) {
    Orvo::Regex::Groups groups;
    if (appraisalSearch(line, groups)) {
        return Kind::record;
    }
    return line.find("op=appraise") == std::string_view::npos ? Kind::other : Kind::nearlyRecord;
}

} // namespace

Lines linesOf(Kind kind) {
    Lines lines;
    for (const std::string_view line : Tests::ordinaryLines()) {
        if (kindOf(line) == kind) {
            lines.push_back(line);
        }
    }
    return lines;
}

} // namespace Vestrel::Bench
