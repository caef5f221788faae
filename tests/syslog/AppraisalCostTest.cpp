// SPDX-License-Identifier: Apache-2.0
// Tests of the search on lines that are made to cost much: the answers are right, and short ones
// are those of the standard matcher. How long they take is the bench's business.
#include "syslog/AppraisalPattern.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/fuzz/Comparison.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace Vestrel::Tests {

namespace {

bool matches(std::string_view line) {
    Orvo::Regex::Groups groups;
    return appraisalSearch(line, groups);
}

class HostileLines : public testing::TestWithParam<HostileKind> {};

TEST_P(HostileLines, OfFewHundredBytesGiveWhatTheStandardMatcherFinds) {
    for (const std::size_t size : {300U, 400U, 512U, 600U}) {
        const std::string line = GetParam().line(size);
        EXPECT_TRUE(searchesAgree(line)) << escaped(line);
    }
}

TEST_P(HostileLines, OfEveryLengthMatchAsTheirKindDoes) {
    const HostileKind& kind = GetParam();
    for (const std::size_t size : {600U, 1024U, 2000U, 4095U, 4096U, 8191U}) {
        EXPECT_EQ(matches(kind.line(size)), kind.matches) << size;
    }
}

TEST_P(HostileLines, FillTheLength) {
    const std::string line = GetParam().line(longestHostileLine);
    EXPECT_LE(line.size(), longestHostileLine);
    EXPECT_GT(line.size(), longestHostileLine - 250);
}

INSTANTIATE_TEST_SUITE_P(Kinds, HostileLines, testing::ValuesIn(hostileKinds()),
                         [](const auto& kind) { return kind.param.name; });

TEST(HostileKinds, CoverBothAnswersUnderDifferentNames) {
    std::set<std::string> names;
    for (const HostileKind& kind : hostileKinds()) {
        names.insert(kind.name);
    }
    EXPECT_EQ(names.size(), hostileKinds().size());
    const auto matching =
        std::ranges::count_if(hostileKinds(), [](const HostileKind& kind) { return kind.matches; });
    EXPECT_GT(matching, 20);
    EXPECT_LT(matching, static_cast<std::ptrdiff_t>(hostileKinds().size()) - 10);
}

TEST(RandomTilings, GiveWhatTheStandardMatcherFinds) {
    AppraisalLines lines(11);
    for (int i = 0; i < 1000; ++i) {
        const std::string line = lines.tiling(500);
        EXPECT_EQ(line.size(), 500U);
        EXPECT_TRUE(searchesAgree(line)) << escaped(line);
    }
}

TEST(RandomTilings, MatchOnlyWithTheWholeLineBefore) {
    AppraisalLines lines(12);
    for (int i = 0; i < 1000; ++i) {
        const std::string body = lines.tiling(longestHostileLine - realLine.size());
        EXPECT_TRUE(matches(body + std::string(realLine)));
        EXPECT_FALSE(matches(body + std::string(realLine) + "."));
    }
}

} // namespace

} // namespace Vestrel::Tests
