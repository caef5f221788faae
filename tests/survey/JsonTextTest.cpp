// SPDX-License-Identifier: Apache-2.0
// Tests that bytes of any kind go through JSON and come back as they were.
#include "survey/JsonText.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

Json read(const std::string& text) {
    bool isTooDeep = false;
    return jsonValue(text, 8, isTooDeep);
}

TEST(JsonText, KeepsUtf8AndWritesOtherBytesInHexadecimal) {
    EXPECT_EQ(asUtf8("plain \xc3\xa4 \xe2\x82\xac \xf0\x9f\x94\x91"),
              "plain \xc3\xa4 \xe2\x82\xac \xf0\x9f\x94\x91");
    EXPECT_EQ(asUtf8("\xff|\xc3|\xc3("), "\\xff|\\xc3|\\xc3(");
    EXPECT_EQ(asUtf8("\xc0\xaf"), "\\xc0\\xaf") << "overlong";
    EXPECT_EQ(asUtf8("\xe0\x80\x80"), "\\xe0\\x80\\x80") << "overlong";
    EXPECT_EQ(asUtf8("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
    EXPECT_EQ(asUtf8("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond Unicode";
    EXPECT_EQ(asUtf8("\xe2\x82"), "\\xe2\\x82") << "cut short";
    EXPECT_EQ(asUtf8("\xf0\x9f\x94("), "\\xf0\\x9f\\x94(");
    EXPECT_EQ(asUtf8(""), "");
}

TEST(JsonText, TellsAByteFromTextThatLooksLikeOne) {
    EXPECT_EQ(asUtf8("\\xff"), "\\x5cxff");
    EXPECT_EQ(asUtf8("\\\xff"), "\\\\xff");
    EXPECT_EQ(asUtf8("\\x \\xf \\xFF \\n"), "\\x \\xf \\xFF \\n") << "which looks like none";
    EXPECT_EQ(fromUtf8("\\x5cxff"), "\\xff");
    EXPECT_EQ(fromUtf8("\\xff"), "\xff");
    EXPECT_EQ(fromUtf8("\\xf"), "\\xf");
}

// Texts of the bytes that mean something to either way.
TEST(JsonText, LosesNothing) {
    constexpr std::array<char, 12> bytes{'\\',   'x',    '5',    'c',    'f',    '\0',
                                         '\xff', '\xc3', '\xa4', '\xf0', '\x9f', '"'};
    std::mt19937 random(1); // NOLINT: the same texts each time
    for (int i = 0; i < 100000; ++i) {
        std::string text(random() % 10, ' ');
        for (char& c : text) {
            c = bytes[random() % bytes.size()];
        }
        ASSERT_EQ(fromUtf8(asUtf8(text)), text) << asUtf8(text);
        ASSERT_EQ(read(jsonText(text)), text) << asUtf8(text);
    }
}

TEST(JsonText, HasNamesAndTextsOfEveryLevelInThatForm) {
    const Json value{{"plain", 1}, {"\xff", {{"\\xfe", "\xfd"}, {"list", {"\xfc", "b", nullptr}}}}};
    const std::string text = jsonText(value);
    EXPECT_EQ(text, R"({"plain":1,"\\xff":{"\\x5cxfe":"\\xfd","list":["\\xfc","b",null]}})");
    EXPECT_EQ(read(text), value);
}

// A terminal obeys U+007F and U+0080 to U+009F as well, which JSON need not escape.
TEST(JsonText, EscapesEveryControlCharacter) {
    const std::string controls = "\n\x1b\x7f|\xc2\x80\xc2\x9b\xc2\x9f|";
    const std::string others = "~\xc2\xa0\xc3\x80\xe2\x82\xac";
    EXPECT_EQ(jsonText(controls + others),
              "\"\\n\\u001b\\u007f|\\u0080\\u009b\\u009f|" + others + "\"");
    EXPECT_EQ(read(jsonText(controls + others)), controls + others);
}

TEST(JsonText, DiscardsWhatIsNoValueOrTooDeep) {
    bool isTooDeep = true;
    EXPECT_TRUE(jsonValue("{", 2, isTooDeep).is_discarded());
    EXPECT_FALSE(isTooDeep);
    EXPECT_TRUE(jsonValue("\"\xff\"", 2, isTooDeep).is_discarded())
        << "which jsonText() never writes";
    EXPECT_FALSE(jsonValue("[[1]]", 2, isTooDeep).is_discarded());
    EXPECT_FALSE(isTooDeep);
    EXPECT_TRUE(jsonValue("[[[1]]]", 2, isTooDeep).is_discarded());
    EXPECT_TRUE(isTooDeep);
}

} // namespace

} // namespace Vestrel::Tests
