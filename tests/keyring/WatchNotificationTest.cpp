// SPDX-License-Identifier: Apache-2.0
// The decoder of keyring notifications: bytes in, values out.
#include "keyring/WatchNotification.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

WatchNotification decoded(const std::array<std::uint32_t, 4>& words) {
    std::array<char, WatchNotification::size> bytes{};
    std::memcpy(bytes.data(), words.data(), bytes.size());
    return WatchNotification::decoded(bytes);
}

TEST(WatchNotification, TakesTypeAndSubtypeFromTheFirstWord) {
    const WatchNotification notification = decoded({0x03000001, 0, 0, 0});
    EXPECT_EQ(notification.type, WatchNotification::key);
    EXPECT_EQ(notification.subtype, WatchNotification::unlinked);
}

TEST(WatchNotification, TakesTheLowBitsForTheTypeAndTheHighEightForTheSubtype) {
    EXPECT_EQ(decoded({0x00ffffff, 0, 0, 0}).type, 0xffffffU);
    EXPECT_EQ(decoded({0x00ffffff, 0, 0, 0}).subtype, 0U);
    EXPECT_EQ(decoded({0xff000000, 0, 0, 0}).type, 0U);
    EXPECT_EQ(decoded({0xff000000, 0, 0, 0}).subtype, 0xffU);
    EXPECT_EQ(decoded({0x00000101, 0, 0, 0}).type, 0x101U);
}

TEST(WatchNotification, TakesOnlySevenBitsForTheLength) {
    EXPECT_EQ(decoded({0, 0x10, 0, 0}).length, 16U);
    EXPECT_EQ(decoded({0, 0xffffff90, 0, 0}).length, 16U);
    EXPECT_EQ(decoded({0, 0x7f, 0, 0}).length, 127U);
    EXPECT_EQ(decoded({0, 0x80, 0, 0}).length, 0U);
}

TEST(WatchNotification, TakesTheTwoSerialsUnsigned) {
    const WatchNotification notification = decoded({0, 0, 0xfffffffe, 0xffffffff});
    EXPECT_EQ(notification.keyId, 4294967294U);
    EXPECT_EQ(notification.aux, 4294967295U);
}

TEST(WatchNotification, ReadsWordsInLittleEndianOrder) {
    constexpr std::array<char, WatchNotification::size> bytes{1, 0, 0, 2, 16, 3, 0, 0,
                                                              4, 5, 0, 0, 6,  0, 7, 0};
    const WatchNotification notification = WatchNotification::decoded(bytes);
    EXPECT_EQ(notification.type, 1U);
    EXPECT_EQ(notification.subtype, 2U);
    EXPECT_EQ(notification.length, 16U);
    EXPECT_EQ(notification.keyId, 0x0504U);
    EXPECT_EQ(notification.aux, 0x070006U);
}

TEST(WatchNotification, NamesTheEightSubtypes) {
    std::vector<std::string> names;
    for (std::uint32_t subtype = 0; subtype < 8; ++subtype) {
        names.emplace_back(decoded({subtype << 24 | 1, 0, 0, 0}).subtypeName());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"instantiated", "updated", "linked", "unlinked",
                                               "cleared", "revoked", "invalidated", "setattr"}));
}

TEST(WatchNotification, HasAnEmptyNameForEveryOtherSubtype) {
    for (std::uint32_t subtype = 8; subtype < 256; ++subtype) {
        EXPECT_STREQ(decoded({subtype << 24 | 1, 0, 0, 0}).subtypeName(), "") << subtype;
    }
}

} // namespace

} // namespace Vestrel::Tests
