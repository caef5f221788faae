// SPDX-License-Identifier: Apache-2.0
// Holds the written-out search equal to the standard matcher on random lines; the fuzzer runs the
// same comparison for longer.
#include "tests/fuzz/AppraisalLines.h"
#include "tests/fuzz/Comparison.h"

#include <gtest/gtest.h>

namespace Vestrel::Tests {

namespace {

// The standard matcher is slow where nothing is inlined.
#if defined(NDEBUG)
constexpr std::uint64_t casesPerSeed = 50000;
#else
constexpr std::uint64_t casesPerSeed = 20000;
#endif

class AppraisalDifferential : public testing::TestWithParam<std::uint64_t> {};

TEST_P(AppraisalDifferential, FindsWhatTheStandardMatcherFinds) {
    const Comparison comparison = compareOnRandomLines(casesPerSeed, GetParam());
    EXPECT_FALSE(comparison.difference) << escaped(*comparison.difference);
    EXPECT_EQ(comparison.cases, casesPerSeed);
    // Lines of which few match, or few do not, would show little.
    EXPECT_GT(comparison.matches, casesPerSeed / 10);
    EXPECT_LT(comparison.matches, casesPerSeed / 2);
}

INSTANTIATE_TEST_SUITE_P(Seeds, AppraisalDifferential, testing::Values(1, 2, 3, 4));

TEST(AppraisalDifferential, GivesTheSameLinesForTheSameSeed) {
    AppraisalLines first(7);
    AppraisalLines second(7);
    AppraisalLines other(8);
    int different = 0;
    for (int i = 0; i < 100; ++i) {
        const std::string line = first.next();
        EXPECT_EQ(line, second.next());
        different += line == other.next() ? 0 : 1;
    }
    EXPECT_GT(different, 90);
}

TEST(AppraisalDifferential, FindsADifference) {
    EXPECT_TRUE(searchesAgree(realLine));
    EXPECT_EQ(escaped("a\"\n\xff"), R"("a\042\012\377")");
}

} // namespace

} // namespace Vestrel::Tests
