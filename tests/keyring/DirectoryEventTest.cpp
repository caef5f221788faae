// SPDX-License-Identifier: Apache-2.0
// The decoder of directory events: bytes in, values out.
#include "keyring/DirectoryEvent.h"

#include "tests/keyring/InotifyBytes.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace Vestrel::Tests {

namespace {

TEST(DirectoryEvent, TakesTheFieldsOfARecord) {
    const std::string bytes = inotifyBytes({0x40000080, 0xfedcba98, "a.der", -7});
    std::span<const char> rest(bytes);
    const auto event = DirectoryEvent::taken(rest);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->watch, -7);
    EXPECT_EQ(event->mask, 0x40000080U);
    EXPECT_EQ(event->cookie, 0xfedcba98U);
    EXPECT_EQ(event->nameLength, 16U);
    EXPECT_EQ(event->name, "a.der");
    EXPECT_TRUE(rest.empty());
}

TEST(DirectoryEvent, FollowsTheWordsOfTheLayout) {
    const std::string bytes("\x01\0\0\0"
                            "\x02\0\0\0"
                            "\x03\0\0\0"
                            "\x04\0\0\0"
                            "abc\0",
                            20);
    std::span<const char> rest(bytes);
    const auto event = DirectoryEvent::taken(rest);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->watch, 1);
    EXPECT_EQ(event->mask, 2U);
    EXPECT_EQ(event->cookie, 3U);
    EXPECT_EQ(event->nameLength, 4U);
    EXPECT_EQ(event->name, "abc");
}

TEST(DirectoryEvent, AdvancesByHeaderAndNameLength) {
    const std::string bytes = inotifyBytes({8, 1, "first"}) + inotifyBytes({0x200, 2, ""}) +
                              inotifyBytes({0x40, 3, "a name that takes two units"}) +
                              inotifyBytes({0x80, 4, "last"});
    std::span<const char> rest(bytes);
    std::vector<std::string> names;
    std::vector<std::uint32_t> lengths;
    while (const auto event = DirectoryEvent::taken(rest)) {
        names.emplace_back(event->name);
        lengths.push_back(event->nameLength);
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"first", "", "a name that takes two units", "last"}));
    EXPECT_EQ(lengths, (std::vector<std::uint32_t>{16, 0, 32, 16}));
}

TEST(DirectoryEvent, LeavesTheNextRecordWhereItIs) {
    const std::string second = inotifyBytes({0x200, 2, "second"});
    const std::string bytes = inotifyBytes({8, 1, "first"}) + second;
    std::span<const char> rest(bytes);
    ASSERT_TRUE(DirectoryEvent::taken(rest));
    EXPECT_EQ(std::string(rest.begin(), rest.end()), second);
}

TEST(DirectoryEvent, HasNoNameWhenTheLengthIsZero) {
    const std::string bytes = inotifyBytes({IN_Q_OVERFLOW, 0, "", -1});
    std::span<const char> rest(bytes);
    const auto event = DirectoryEvent::taken(rest);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->watch, -1);
    EXPECT_EQ(event->nameLength, 0U);
    EXPECT_EQ(event->name, "");
    EXPECT_TRUE(rest.empty());
}

TEST(DirectoryEvent, EndsTheNameAtTheFirstNul) {
    const std::string bytes = inotifyHeader({8}, 8) + std::string("ab\0cd\0\0\0", 8);
    std::span<const char> rest(bytes);
    EXPECT_EQ(DirectoryEvent::taken(rest)->name, "ab");
    EXPECT_TRUE(rest.empty());
}

TEST(DirectoryEvent, TakesTheWholeFieldAsNameWhenNoNulEndsIt) {
    const std::string bytes = inotifyHeader({8}, 4) + "abcd" + inotifyBytes({8, 0, "next"});
    std::span<const char> rest(bytes);
    EXPECT_EQ(DirectoryEvent::taken(rest)->name, "abcd");
    EXPECT_EQ(DirectoryEvent::taken(rest)->name, "next");
}

TEST(DirectoryEvent, IsNothingWithoutAWholeHeader) {
    const std::string bytes = inotifyHeader({8}, 0);
    for (std::size_t size = 0; size < DirectoryEvent::headerSize; ++size) {
        const std::vector<char> part(bytes.begin(),
                                     bytes.begin() + static_cast<std::ptrdiff_t>(size));
        std::span<const char> rest(part);
        EXPECT_FALSE(DirectoryEvent::taken(rest)) << size;
        EXPECT_TRUE(rest.empty()) << size;
    }
}

class HostileLength : public testing::TestWithParam<std::uint32_t> {};

// The bytes lie in a heap block of their own, so that a read beyond them is seen.
TEST_P(HostileLength, TakesNoMoreThanTheBytesThatAreThere) {
    const std::string bytes = inotifyHeader({8}, GetParam()) + "name";
    const std::vector<char> block(bytes.begin(), bytes.end());
    std::span<const char> rest(block);
    const auto event = DirectoryEvent::taken(rest);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->nameLength, GetParam());
    EXPECT_EQ(event->name, "name");
    EXPECT_TRUE(rest.empty());
    EXPECT_FALSE(DirectoryEvent::taken(rest));
}

INSTANTIATE_TEST_SUITE_P(Length, HostileLength,
                         testing::Values(5U, 4096U, 0x7fffffffU, 0x80000000U, 0xfffffff0U,
                                         std::numeric_limits<std::uint32_t>::max()));

TEST(DirectoryEvent, SurvivesALengthWithNoBytesBehindTheHeader) {
    const std::string bytes = inotifyHeader({8}, 64);
    const std::vector<char> block(bytes.begin(), bytes.end());
    std::span<const char> rest(block);
    const auto event = DirectoryEvent::taken(rest);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->name, "");
    EXPECT_TRUE(rest.empty());
}

TEST(DirectoryEvent, ReadsARecordThatIsNotAligned) {
    const std::string bytes =
        inotifyHeader({8}, 3) + std::string("ab\0", 3) + inotifyBytes({0x200, 9, "odd"});
    std::span<const char> rest(bytes);
    ASSERT_TRUE(DirectoryEvent::taken(rest));
    const auto second = DirectoryEvent::taken(rest);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->mask, 0x200U);
    EXPECT_EQ(second->name, "odd");
}

} // namespace

} // namespace Vestrel::Tests
