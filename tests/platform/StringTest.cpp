// SPDX-License-Identifier: Apache-2.0
// Tests of the framework's plain values: the text and the time span.
#include "platform/orvo/String.h"

#include "platform/orvo/Duration.h"
#include "tests/platform/Accounts.h"

#include <gtest/gtest.h>

#include <sstream>
#include <unordered_set>
#include <utility>

namespace Vestrel::Tests {

namespace {

using namespace std::string_view_literals;
using Orvo::Duration;
using Orvo::String;

template <class Value>
std::string streamed(const Value& value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

TEST(String, IsEmptyByDefaultAndFromNull) {
    EXPECT_TRUE(String().empty());
    EXPECT_EQ(String().size(), 0U);
    EXPECT_EQ(String().view(), ""sv);
    EXPECT_STREQ(String().c_str(), "");
    const char* const nothing = nullptr;
    EXPECT_TRUE(String(nothing).empty());
    EXPECT_EQ(String(""), String());
}

TEST(String, TakesEveryKindOfText) {
    EXPECT_EQ(String("ima").view(), "ima"sv);
    EXPECT_EQ(String(std::string("ima")).view(), "ima"sv);
    EXPECT_EQ(String("imachine"sv.substr(0, 3)).view(), "ima"sv);
}

TEST(String, KeepsNulBytesOfViewsAndStopsAtThemInPointers) {
    const String whole("a\0b"sv);
    EXPECT_EQ(whole.size(), 3U);
    EXPECT_EQ(whole.view(), "a\0b"sv);
    EXPECT_EQ(whole.c_str()[3], '\0');
    EXPECT_EQ(String("a\0b").view(), "a"sv);
    EXPECT_NE(whole, String("a"));
}

TEST(String, SharesOneBlockBetweenCopies) {
    const String first("shared");
    const String second(first);
    String third;
    third = second;
    EXPECT_EQ(first.view().data(), second.view().data());
    EXPECT_EQ(first.view().data(), third.view().data());
    EXPECT_EQ(accountOf("Orvo::String").objects, 1U);
}

TEST(String, OutlivesTheCopyThatItWasMadeFrom) {
    String kept;
    {
        const String first("kept");
        kept = first;
    }
    EXPECT_EQ(kept.view(), "kept"sv);
}

TEST(String, GivesItsTextAwayWhenMoved) {
    String from("moved");
    const char* const block = from.c_str();
    String to(std::move(from));
    EXPECT_EQ(to.c_str(), block);
    String other("other");
    other = std::move(to);
    EXPECT_EQ(other.c_str(), block);
}

TEST(String, SurvivesAssignmentToItself) {
    String text("self");
    const String& alias = text;
    text = alias;
    EXPECT_EQ(text.view(), "self"sv);
}

TEST(String, ReturnsItsMemoryWithTheLastCopy) {
    const Pelbin::Account before = accountOf("Orvo::String");
    {
        const String text("counted");
        const String copy(text); // NOLINT(performance-unnecessary-copy-initialization)
        const String another("another");
        EXPECT_EQ(accountOf("Orvo::String").objects, before.objects + 2);
        EXPECT_GE(accountOf("Orvo::String").bytes, before.bytes + 14);
    }
    EXPECT_EQ(accountOf("Orvo::String").objects, before.objects);
    EXPECT_EQ(accountOf("Orvo::String").bytes, before.bytes);
}

TEST(String, NeedsNoMemoryWhenEmpty) {
    const Pelbin::Account before = accountOf("Orvo::String");
    const String text("");
    EXPECT_EQ(accountOf("Orvo::String").objects, before.objects);
}

TEST(String, OrdersByBytesAsUnsigned) {
    EXPECT_LT(String("a"), String("b"));
    EXPECT_LT(String("a"), String("a\0"sv));
    EXPECT_LT(String(), String("a"));
    EXPECT_LT(String("z"), String("\xc3\xa4"));
    EXPECT_EQ(String("a") <=> String("a"), std::strong_ordering::equal);
}

TEST(String, HashesEqualTextsEqually) {
    std::unordered_set<String> set{String("a"), String("b"), String(std::string("a"))};
    EXPECT_EQ(set.size(), 2U);
    EXPECT_TRUE(set.contains(String("b")));
    EXPECT_EQ(std::hash<String>()(String("a\0b"sv)), std::hash<std::string_view>()("a\0b"sv));
}

TEST(String, StreamsItsText) {
    EXPECT_EQ(streamed(String(".ima")), ".ima");
    const String text("converts");
    const std::string_view view = text;
    EXPECT_EQ(view, "converts"sv);
}

TEST(Duration, IsZeroByDefault) {
    EXPECT_TRUE(Duration().isZero());
    EXPECT_EQ(Duration().nanoseconds().count(), 0);
    EXPECT_FALSE(Duration(std::chrono::nanoseconds(1)).isZero());
}

TEST(Duration, TakesEverySpanAndOrdersThemBySign) {
    EXPECT_EQ(Duration(std::chrono::seconds(2)).nanoseconds(), std::chrono::milliseconds(2000));
    EXPECT_LT(Duration(std::chrono::seconds(-1)), Duration());
    EXPECT_GT(Duration(std::chrono::minutes(1)), Duration(std::chrono::seconds(59)));
    EXPECT_EQ(Duration(std::chrono::minutes(1)), Duration(std::chrono::seconds(60)));
}

TEST(Duration, StreamsSeconds) {
    EXPECT_EQ(streamed(Duration(std::chrono::milliseconds(250))), "0.25s");
    EXPECT_EQ(streamed(Duration()), "0s");
    EXPECT_EQ(streamed(Duration(std::chrono::seconds(-3))), "-3s");
}

} // namespace

} // namespace Vestrel::Tests
