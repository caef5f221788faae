// SPDX-License-Identifier: Apache-2.0
// Tests of the text form of records, written and read.
#include "platform/zell/AttributeText.h"

#include "platform/zell/Errors.h"
#include "platform/zell/FileDescriptor.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>

namespace Vestrel::Tests {

namespace {

using namespace std::string_view_literals;
using Orvo::String;
using Zell::AttributeCursor;
using Zell::AttributeTextError;

struct Entry {
    String name;
    std::int32_t number = 0;
    std::int32_t last = 0;
};

const Zell::TypeData& entryType() {
    static const Zell::TypeData& type = (*new Zell::TypeData("Entry"))
                                            .attributeIs(Zell::attribute<&Entry::name>("name"))
                                            .attributeIs(Zell::attribute<&Entry::number>("number"))
                                            .attributeIs(Zell::attribute<&Entry::last>("last"));
    return type;
}

std::string written(const Entry& entry) {
    std::ostringstream out;
    Zell::writeRecord(out, entryType(), &entry);
    return out.str();
}

std::string written(const Orvo::Value& value) {
    std::ostringstream out;
    Zell::writeValue(out, value);
    return out.str();
}

Entry entryOf(std::string_view text) {
    AttributeCursor cursor(text);
    Entry entry;
    Zell::desAttrPre(cursor, "Entry", "name", entry.name);
    Zell::desAttrIntra(cursor, "number", entry.number);
    Zell::desAttrPost(cursor, "last", entry.last);
    cursor.end();
    return entry;
}

TEST(AttributeText, HasTypeNameAndAttributesInOrder) {
    EXPECT_EQ(written(Entry{".ima", 7, -1}), "Entry( name=\".ima\", number=7, last=-1 )");
}

TEST(AttributeText, EscapesAllButPlainCharacters) {
    EXPECT_EQ(written(String("a \"b\" \\ \n \x7f \xc3\xa4")),
              R"("a \x22b\x22 \x5c \x0a \x7f \xc3\xa4")");
    EXPECT_EQ(written(String("\0"sv)), R"("\x00")");
}

TEST(AttributeText, WritesEveryKindOfValue) {
    const auto node = Orvo::makeNode<Zell::FileDescriptor>("name");
    EXPECT_EQ(written(Orvo::Value()), "-");
    EXPECT_EQ(written(Orvo::Value(true)), "true");
    EXPECT_EQ(written(Orvo::Value(false)), "false");
    EXPECT_EQ(written(Orvo::Value(std::numeric_limits<std::int64_t>::min())),
              "-9223372036854775808");
    EXPECT_EQ(written(Orvo::Value(Orvo::Ptr<Orvo::Node>())), "null");
    EXPECT_EQ(written(Orvo::Value(Orvo::Ptr<Orvo::Node>(node))), "Zell::FileDescriptor");
    EXPECT_EQ(written(Zell::recordValue(entryType(), Entry{"a", 1, 2})),
              "Entry( name=\"a\", number=1, last=2 )");
}

class RoundTrip : public testing::TestWithParam<std::string_view> {};

TEST_P(RoundTrip, KeepsNameAndNumbers) {
    const Entry entry{GetParam(), std::numeric_limits<std::int32_t>::min(),
                      std::numeric_limits<std::int32_t>::max()};
    const Entry read = entryOf(written(entry));
    EXPECT_EQ(read.name, entry.name);
    EXPECT_EQ(read.number, entry.number);
    EXPECT_EQ(read.last, entry.last);
}

INSTANTIATE_TEST_SUITE_P(AttributeText, RoundTrip,
                         testing::Values("", ".ima", "with \"quotes\"", "back\\slash", "\\x41",
                                         "nul\0byte"sv, "\xc3\xa4\xff\x80", "line\nend\r\t",
                                         "\", number=9, last=9 )", " "));

TEST(AttributeText, ReadsUpperCaseDigits) {
    EXPECT_EQ(entryOf(R"(Entry( name="\x4A\x4a", number=0, last=0 ))").name, String("JJ"));
}

class Malformed : public testing::TestWithParam<std::string_view> {};

TEST_P(Malformed, IsRefused) {
    EXPECT_THROW(entryOf(GetParam()), AttributeTextError);
}

INSTANTIATE_TEST_SUITE_P(
    AttributeText, Malformed,
    testing::Values(
        ""sv, "Entry", "Entry(", "Other( name=\"a\", number=1, last=2 )",
        "entry( name=\"a\", number=1, last=2 )", " Entry( name=\"a\", number=1, last=2 )",
        "Entry(name=\"a\", number=1, last=2 )", "Entry( nam=\"a\", number=1, last=2 )",
        "Entry( name \"a\", number=1, last=2 )", "Entry( name=a, number=1, last=2 )",
        "Entry( name=\"a, number=1, last=2 )", "Entry( name=\"a\"",
        "Entry( name=\"a\" number=1, last=2 )", "Entry( name=\"a\",number=1, last=2 )",
        "Entry( name=\"a\", last=2 )", "Entry( name=\"a\", last=1, number=2 )",
        "Entry( name=\"a\", number=, last=2 )", "Entry( name=\"a\", number=x, last=2 )",
        "Entry( name=\"a\", number=+1, last=2 )", "Entry( name=\"a\", number= 1, last=2 )",
        "Entry( name=\"a\", number=1.5, last=2 )", "Entry( name=\"a\", number=2147483648, last=2 )",
        "Entry( name=\"a\", number=-2147483649, last=2 )", "Entry( name=\"a\", number=1, last=2",
        "Entry( name=\"a\", number=1, last=2)", "Entry( name=\"a\", number=1, last=2, more=3 )",
        "Entry( name=\"a\n\", number=1, last=2 )", "Entry( name=\"\xc3\xa4\", number=1, last=2 )",
        "Entry( name=\"a\0\", number=1, last=2 )"sv, R"(Entry( name="\", number=1, last=2 ))",
        R"(Entry( name="\n", number=1, last=2 ))", R"(Entry( name="\x4", number=1, last=2 ))",
        R"(Entry( name="\xg1", number=1, last=2 ))", R"(Entry( name="\x-1", number=1, last=2 ))",
        R"(Entry( name="\x)", R"(Entry( name="\x4)", R"(Entry( name="\x41)"));

TEST(AttributeText, RefusesWhatIsLeftOver) {
    EXPECT_NO_THROW(entryOf("Entry( name=\"a\", number=1, last=2 )"));
    EXPECT_THROW(entryOf("Entry( name=\"a\", number=1, last=2 ) "), AttributeTextError);
    EXPECT_THROW(entryOf("Entry( name=\"a\", number=1, last=2 )Entry"), AttributeTextError);
    EXPECT_THROW(entryOf("Entry( name=\"a\", number=1, last=2 )\0"sv), AttributeTextError);
}

TEST(AttributeText, SaysWhatItExpectedAndWhere) {
    try {
        entryOf("Entry( name=\"a\", number=x )");
        FAIL() << "not refused";
    } catch (const AttributeTextError& error) {
        EXPECT_STREQ(error.what(), "expected a 32-bit integer at \"x )\"");
    }
}

} // namespace

} // namespace Vestrel::Tests
