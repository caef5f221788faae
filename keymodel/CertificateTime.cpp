// SPDX-License-Identifier: Apache-2.0
// Checks the digits of certificate times field by field.
#include "keymodel/CertificateTime.h"

#include <algorithm>
#include <array>

namespace Vestrel {

namespace {

constexpr std::size_t utcTimeSize = 13;         // YYMMDDhhmmssZ
constexpr std::size_t generalizedTimeSize = 15; // YYYYMMDDhhmmssZ

bool isDigit(std::uint8_t byte) {
    return byte >= '0' && byte <= '9';
}

unsigned twoDigits(ByteSpan digits, std::size_t at) {
    return (digits[at] - unsigned{'0'}) * 10 + (digits[at + 1] - unsigned{'0'});
}

bool isLeapYear(unsigned year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

unsigned daysOf(unsigned month, unsigned year) {
    constexpr std::array<unsigned, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : days[month - 1];
}

// Midnight may be written as hour 24, and a leap second as second 60.
bool isDateAndTime(unsigned year, ByteSpan digits) {
    const unsigned month = twoDigits(digits, 0);
    const unsigned day = twoDigits(digits, 2);
    return year >= 1970 && month >= 1 && month <= 12 && day >= 1 && day <= daysOf(month, year) &&
           twoDigits(digits, 4) <= 24 && twoDigits(digits, 6) <= 59 && twoDigits(digits, 8) <= 60;
}

bool isUtcTime(ByteSpan digits) {
    const unsigned year = twoDigits(digits, 0);
    return isDateAndTime(year + (year >= 50 ? 1900 : 2000), digits.subspan(2));
}

// The years of UTCTime must be given as UTCTime.
bool isGeneralizedTime(ByteSpan digits) {
    const unsigned year = twoDigits(digits, 0) * 100 + twoDigits(digits, 2);
    return (year < 1950 || year > 2049) && isDateAndTime(year, digits.subspan(4));
}

} // namespace

bool isCertificateTime(std::uint8_t tag, ByteSpan content) {
    const bool utc = tag == Ber::utcTime && content.size() == utcTimeSize;
    const bool generalized = tag == Ber::generalizedTime && content.size() == generalizedTimeSize;
    if (!utc && !generalized) {
        return false;
    }
    const ByteSpan digits = content.first(content.size() - 1);
    return content.back() == 'Z' && std::ranges::all_of(digits, isDigit) &&
           (utc ? isUtcTime(digits) : isGeneralizedTime(digits));
}

} // namespace Vestrel
