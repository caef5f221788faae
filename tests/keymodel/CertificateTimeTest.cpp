// SPDX-License-Identifier: Apache-2.0
// Tests of single dates and times: each limit of each field, and each place of a digit.
#include "keymodel/CertificateTime.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

bool isTime(std::uint8_t tag, const std::string& text) {
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    return isCertificateTime(tag, bytes);
}

bool isUtcTime(const std::string& text) {
    return isTime(Ber::utcTime, text);
}

bool isGeneralizedTime(const std::string& text) {
    return isTime(Ber::generalizedTime, text);
}

std::string twoDigits(unsigned number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
}

TEST(CertificateTime, KnowsHowManyDaysEachMonthHas) {
    constexpr std::array<unsigned, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (unsigned month = 1; month <= days.size(); ++month) {
        const std::string yearAndMonth = "21" + twoDigits(month);
        for (unsigned day = 1; day <= days.at(month - 1); ++day) {
            EXPECT_TRUE(isUtcTime(yearAndMonth + twoDigits(day) + "000000Z"))
                << month << " " << day;
        }
        EXPECT_FALSE(isUtcTime(yearAndMonth + "00000000Z")) << month;
        EXPECT_FALSE(isUtcTime(yearAndMonth + twoDigits(days.at(month - 1) + 1) + "000000Z"))
            << month;
    }
}

TEST(CertificateTime, KnowsLeapYears) {
    for (const std::string year : {"2052", "2400"}) {
        EXPECT_TRUE(isGeneralizedTime(year + "0229000000Z")) << year;
        EXPECT_FALSE(isGeneralizedTime(year + "0230000000Z")) << year;
    }
    for (const std::string year : {"2051", "2100"}) {
        EXPECT_FALSE(isGeneralizedTime(year + "0229000000Z")) << year;
    }
}

TEST(CertificateTime, TakesNothingButDigitsInAnyPlace) {
    const std::string utc = "201111111111Z";
    const std::string generalized = "20511111111111Z";
    ASSERT_TRUE(isUtcTime(utc));
    ASSERT_TRUE(isGeneralizedTime(generalized));
    for (const char other : {'/', ':', ' ', '\0', '~', '\xff'}) {
        for (std::size_t at = 0; at < utc.size(); ++at) {
            EXPECT_FALSE(isUtcTime(std::string(utc).replace(at, 1, 1, other))) << at << other;
        }
        for (std::size_t at = 0; at < generalized.size(); ++at) {
            EXPECT_FALSE(isGeneralizedTime(std::string(generalized).replace(at, 1, 1, other)))
                << at << other;
        }
    }
}

TEST(CertificateTime, NeedsTheTagThatGoesWithTheLength) {
    EXPECT_TRUE(isUtcTime("200101000000Z"));
    EXPECT_FALSE(isGeneralizedTime("200101000000Z"));
    EXPECT_FALSE(isGeneralizedTime("205101010000Z")) << "without seconds";
    EXPECT_FALSE(isTime(Ber::octetString, "200101000000Z"));
    EXPECT_TRUE(isGeneralizedTime("20510101000000Z"));
    EXPECT_FALSE(isUtcTime("20510101000000Z"));
    EXPECT_FALSE(isUtcTime("20010100000000Z"));
    EXPECT_FALSE(isTime(Ber::octetString, "20510101000000Z"));
    EXPECT_FALSE(isGeneralizedTime("2051010100000000Z"));
    EXPECT_FALSE(isUtcTime(""));
}

} // namespace

} // namespace Vestrel::Tests
