// SPDX-License-Identifier: Apache-2.0
// Runs of bytes found word by word are those found byte by byte.
#include "platform/zell/ByteRuns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

namespace Zell {

namespace {

using Member = std::function<bool(unsigned char)>;

std::size_t leadingByByte(std::string_view text, const Member& isMember) {
    std::size_t count = 0;
    while (count != text.size() && isMember(static_cast<unsigned char>(text[count]))) {
        ++count;
    }
    return count;
}

std::size_t trailingByByte(std::string_view text, const Member& isMember) {
    return leadingByByte(std::string(text.rbegin(), text.rend()), isMember);
}

// Every byte at every place of texts of every length around the word size, among members.
template <class Kind>
void compare(const Member& isMember, char member) {
    for (std::size_t size = 0; size <= 3 * ByteRuns::wordSize; ++size) {
        for (std::size_t place = 0; place < size; ++place) {
            for (int byte = 0; byte < 256; ++byte) {
                // With nothing beside it, which the sanitizers know.
                const auto bytes = std::make_unique<char[]>(size); // NOLINT: of a run's own length
                std::fill_n(bytes.get(), size, member);
                bytes[place] = static_cast<char>(byte);
                const std::string_view text(bytes.get(), size);
                ASSERT_EQ(ByteRuns::leading<Kind>(text), leadingByByte(text, isMember))
                    << "byte " << byte << " at " << place << " of " << size;
                ASSERT_EQ(ByteRuns::trailing<Kind>(text), trailingByByte(text, isMember))
                    << "byte " << byte << " at " << place << " of " << size;
            }
        }
        const std::string all(size, member);
        EXPECT_EQ(ByteRuns::leading<Kind>(all), size);
        EXPECT_EQ(ByteRuns::trailing<Kind>(all), size);
    }
}

bool isDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}

} // namespace

TEST(ByteRuns, DigitsEndAtEveryOtherByte) {
    compare<ByteRuns::Digits>(isDigit, '7');
}

TEST(ByteRuns, DigitsAndPointsEndAtEveryOtherByte) {
    compare<ByteRuns::DigitsAndPoints>([](unsigned char c) { return isDigit(c) || c == '.'; }, '.');
}

TEST(ByteRuns, DigitsPointsAndColonsEndAtEveryOtherByte) {
    compare<ByteRuns::DigitsPointsAndColons>(
        [](unsigned char c) { return isDigit(c) || c == '.' || c == ':'; }, ':');
}

TEST(ByteRuns, SpacesEndAtEveryOtherByte) {
    compare<ByteRuns::Spaces>([](unsigned char c) { return c == ' '; }, ' ');
}

TEST(ByteRuns, NoQuotesEndAtQuotesOnly) {
    compare<ByteRuns::NoQuotes>([](unsigned char c) { return c != '"'; }, '#');
}

TEST(ByteRuns, NoLineEndsEndAtLineEndsOnly) {
    compare<ByteRuns::NoLineEnds>([](unsigned char c) { return c != '\n' && c != '\r'; }, 'x');
}

TEST(ByteRuns, PrintableAsciiEndsAtEveryOtherByte) {
    compare<ByteRuns::PrintableAscii>([](unsigned char c) { return c >= 0x20 && c < 0x7f; }, '~');
}

// Of neighbours, where a carry would show.
TEST(ByteRuns, EveryPairOfBytesIsToldApart) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            std::string text(ByteRuns::wordSize, '5');
            text[3] = static_cast<char>(first);
            text[4] = static_cast<char>(second);
            ASSERT_EQ(ByteRuns::leading<ByteRuns::Digits>(text), leadingByByte(text, isDigit));
            ASSERT_EQ(ByteRuns::trailing<ByteRuns::Digits>(text), trailingByByte(text, isDigit));
        }
    }
}

} // namespace Zell
