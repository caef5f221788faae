// SPDX-License-Identifier: Apache-2.0
// Texts of unknown origin on lines of output.
#include "platform/zell/OneLine.h"

#include <gtest/gtest.h>

#include <string>

namespace Zell {

namespace {

bool isPlain(int byte) {
    return byte >= ' ' && byte < 0x7f;
}

} // namespace

TEST(OneLine, HoldsNoControlCharacterNorStrayByteAtAnyPlace) {
    for (std::size_t size = 0; size <= 50; ++size) {
        EXPECT_TRUE(isOneLine(std::string(size, 'a'))) << size;
        for (std::size_t place = 0; place < size; ++place) {
            for (int byte = 0; byte < 256; ++byte) {
                std::string text(size, 'a');
                text[place] = static_cast<char>(byte);
                ASSERT_EQ(isOneLine(text), isPlain(byte))
                    << "byte " << byte << " at " << place << " of " << size;
                ASSERT_EQ(oneLine(text) == text, isOneLine(text));
            }
        }
    }
}

// Two bytes of UTF-8 among others: U+0080 to U+009F are control characters, those behind are not.
TEST(OneLine, HoldsNoControlCharacterOfTwoBytesAtAnyPlace) {
    for (std::size_t size = 2; size <= 50; ++size) {
        for (std::size_t place = 0; place + 2 <= size; ++place) {
            for (int second = 0; second < 256; ++second) {
                std::string text(size, 'a');
                text[place] = '\xc2';
                text[place + 1] = static_cast<char>(second);
                ASSERT_EQ(isOneLine(text), second >= 0xa0 && second <= 0xbf)
                    << "byte " << second << " behind " << place << " of " << size;
                ASSERT_EQ(oneLine(text) == text, isOneLine(text));
            }
        }
    }
}

TEST(OneLine, KeepsUtf8AndShowsOtherBytesAsHex) {
    const std::string names = "plain \xc3\xa4 \xe2\x82\xac \xf0\x9f\x94\x91 \xc2\xa0";
    EXPECT_EQ(oneLine(names), names);
    EXPECT_TRUE(isOneLine(names));
    EXPECT_EQ(oneLine("\xc2\x9b[2J|\x9b[2J"), "\\xc2\\x9b[2J|\\x9b[2J");
    EXPECT_EQ(oneLine("\xc2\x85\xc3\xa4"), "\\xc2\\x85\xc3\xa4");
    EXPECT_EQ(oneLine("\xff|\xc3|\xe2\x82"), "\\xff|\\xc3|\\xe2\\x82");
    EXPECT_FALSE(isOneLine("a\xc3"));
}

TEST(OneLine, ShowsControlCharactersAsHex) {
    EXPECT_EQ(oneLine("a\nb\x7f\xc3\xa4"), "a\\x0ab\\x7f\xc3\xa4");
    EXPECT_EQ(oneLine(std::string("\0\x1f", 2)), "\\x00\\x1f");
    EXPECT_EQ(oneLine(""), "");
}

} // namespace Zell
