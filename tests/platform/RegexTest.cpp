// SPDX-License-Identifier: Apache-2.0
// Tests of the compiled regular expression.
#include "platform/orvo/Regex.h"

#include <gtest/gtest.h>

#include <string>

namespace Vestrel::Tests {

namespace {

using namespace std::string_view_literals;
using Orvo::Regex;

TEST(Regex, FindsTheLeftmostMatchWithItsGroups) {
    const Regex regex = Regex::compile("([a-z]+)=([0-9]+)");
    const auto groups = regex.search("  pid=12 uid=7");
    ASSERT_TRUE(groups);
    EXPECT_EQ(*groups, (Regex::Groups{"pid=12", "pid", "12"}));
}

TEST(Regex, FindsNothingWhereNothingIs) {
    EXPECT_FALSE(Regex::compile("b").search("aaa"));
    EXPECT_FALSE(Regex::compile("b").search(""));
    EXPECT_TRUE(Regex::compile("b*").search(""));
}

TEST(Regex, LeavesAGroupThatTookNoPartEmpty) {
    const auto groups = Regex::compile("(a)|(b)").search("b");
    ASSERT_TRUE(groups);
    EXPECT_EQ(*groups, (Regex::Groups{"b", "", "b"}));
}

TEST(Regex, PointsIntoTheSearchedText) {
    const std::string_view text = "xxay";
    const auto groups = Regex::compile("a").search(text);
    ASSERT_TRUE(groups);
    EXPECT_EQ(groups->front().data(), text.data() + 2);
}

TEST(Regex, SearchesBeyondNulBytes) {
    const auto groups = Regex::compile("b").search("a\0b"sv);
    ASSERT_TRUE(groups);
    EXPECT_EQ(groups->front(), "b");
}

TEST(Regex, RefusesAPatternThatIsNotWellFormed) {
    EXPECT_THROW(Regex::compile("("), std::regex_error);
    EXPECT_THROW(Regex::compile("[a"), std::regex_error);
}

// Finds a "b" as the pattern "b" does, but not in a text that says "hidden".
bool findB(std::string_view text, Regex::Groups& groups) {
    const std::size_t place = text.find('b');
    if (place == std::string_view::npos || text.starts_with("hidden")) {
        return false;
    }
    groups.resize(1);
    groups[0] = text.substr(place, 1);
    return true;
}

TEST(Regex, SearchesByTheMatcherThatItComesWith) {
    const Regex regex = Regex::compile("b", findB);
    const std::string_view text = "abb";
    const auto groups = regex.search(text);
    ASSERT_TRUE(groups);
    EXPECT_EQ(groups->front().data(), text.data() + 1);
    EXPECT_FALSE(regex.search("aaa"));
    const std::string hidden = "hidden" + std::string(Regex::maxCheckedText, 'b');
    EXPECT_FALSE(regex.search(hidden)) << "too long to be held equal to the pattern";
    EXPECT_TRUE(regex.searchByPattern(hidden));
}

#if defined(VESTREL_CHECKS)
TEST(Regex, EndsTheProcessWhenAMatcherDiffersFromItsPattern) {
    const Regex regex = Regex::compile("b", findB);
    EXPECT_DEATH(regex.search("hidden b"), "Regex:[0-9]+: [A-Za-z]+: assertion failed: matcher "
                                           "equals pattern\n");
}
#endif

TEST(RegexGroups, HoldUpToSixteen) {
    Regex::Groups groups;
    EXPECT_EQ(groups.size(), 0U);
    groups.resize(Regex::Groups::maxGroups);
    EXPECT_EQ(groups.size(), 16U);
    EXPECT_EQ(groups[15], "");
    EXPECT_DEATH(groups.resize(17), "Regex:[0-9]+: resize: assertion failed: size <= maxGroups\n");
}

TEST(RegexGroups, AreEqualWhenSizeAndTextsAre) {
    EXPECT_EQ((Regex::Groups{"a", "b"}), (Regex::Groups{"a", "b"}));
    EXPECT_FALSE((Regex::Groups{"a", "b"}) == (Regex::Groups{"a"}));
    EXPECT_FALSE((Regex::Groups{"a", "b"}) == (Regex::Groups{"a", "c"}));
}

TEST(Regex, KeepsItsPatternInCopies) {
    const Regex regex = Regex::compile("a.c");
    const Regex copy = regex; // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(copy.pattern(), Orvo::String("a.c"));
    EXPECT_TRUE(copy.search("abc"));
}

} // namespace

} // namespace Vestrel::Tests
