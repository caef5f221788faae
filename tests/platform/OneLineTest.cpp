// SPDX-License-Identifier: Apache-2.0
// Texts of unknown origin on lines of output.
#include "platform/zell/OneLine.h"

#include <gtest/gtest.h>

#include <string>

namespace Zell {

namespace {

bool isControl(int byte) {
    return byte < ' ' || byte == 0x7f;
}

} // namespace

TEST(OneLine, HoldsNoControlCharacterAtAnyPlace) {
    for (std::size_t size = 0; size <= 50; ++size) {
        EXPECT_TRUE(isOneLine(std::string(size, 'a'))) << size;
        for (std::size_t place = 0; place < size; ++place) {
            for (int byte = 0; byte < 256; ++byte) {
                std::string text(size, 'a');
                text[place] = static_cast<char>(byte);
                ASSERT_EQ(isOneLine(text), !isControl(byte))
                    << "byte " << byte << " at " << place << " of " << size;
                ASSERT_EQ(oneLine(text) == text, isOneLine(text));
            }
        }
    }
}

TEST(OneLine, ShowsControlCharactersAsHex) {
    EXPECT_EQ(oneLine("a\nb\x7f\xc3\xa4"), "a\\x0ab\\x7f\xc3\xa4");
    EXPECT_EQ(oneLine(std::string("\0\x1f", 2)), "\\x00\\x1f");
    EXPECT_EQ(oneLine(""), "");
}

} // namespace Zell
