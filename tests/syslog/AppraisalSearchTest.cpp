// SPDX-License-Identifier: Apache-2.0
// Tests of the search for the appraisal record at the points where matchers are apt to differ. Each
// line is also given to the standard matcher, which defines the right answer.
#include "syslog/AppraisalPattern.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/fuzz/Comparison.h"

#include <gtest/gtest.h>

#include <locale>
#include <optional>
#include <string>
#include <string_view>

namespace Vestrel::Tests {

namespace {

using namespace std::string_literals;
using Orvo::Regex;

const std::string head(realHead);
const std::string tail(realTail);
const std::string record(realLine);

std::optional<Regex::Groups> search(std::string_view line) {
    EXPECT_TRUE(searchesAgree(line)) << escaped(line);
    Regex::Groups groups;
    return appraisalSearch(line, groups) ? std::optional(groups) : std::nullopt;
}

bool matches(std::string_view line) {
    return search(line).has_value();
}

// The group's text, or a note that there is no match.
std::string group(std::string_view line, std::size_t number) {
    const auto groups = search(line);
    return groups ? std::string((*groups)[number]) : "no match";
}

std::string cause(std::string_view line) {
    return group(line, causeGroup);
}

TEST(AppraisalPattern, HasItsTwoHundredAndFortySevenCharacters) {
    EXPECT_EQ(
        std::string(appraisalPattern),
        "kernel: \\[\\s*[\\d\\.]+\\]\\[\\s*T\\d+\\]\\s+audit:\\s+type=1800\\s+audit\\(([\\d\\.:]+)"
        "\\):\\s+pid=(\\d+)\\s+uid=(\\d+)\\s+auid=(\\d+)\\s+ses=(\\d+)\\s+op=appraise_data\\s+"
        "cause=(.+)\\s+comm=\"([^\"]+)\"\\s+name=\"([^\"]+)\"\\s+dev=\"([^\"]+)\"\\s+ino=(\\d+)"
        "\\s+res=(\\d+)\\s+errno=(\\d+)$");
    EXPECT_EQ(std::string(appraisalPattern).size(), 247U);
}

TEST(AppraisalSearch, GivesAllGroupsInPlace) {
    const std::string line = "prefix " + record;
    const auto groups = search(line);
    ASSERT_TRUE(groups);
    EXPECT_EQ(*groups,
              (Regex::Groups{realLine, "1795226825.572:11", "115", "0", "4294967295", "4294967295",
                             "missing-hash", "vmt", "/t/nohash", "rootfs", "392", "0", "0"}));
    EXPECT_EQ(groups->front().data(), line.data() + 7);
}

TEST(AppraisalSearch, KeepsAllBlanksOfTheCauseButTheLast) {
    EXPECT_EQ(cause(head + "a   " + tail), "a  ");
    EXPECT_EQ(cause(head + "a\t\v\f " + tail), "a\t\v\f");
    EXPECT_EQ(cause(head + "  a b " + tail), "  a b");
    EXPECT_EQ(cause(head + "a " + tail), "a");
}

TEST(AppraisalSearch, TakesACauseOfBlanksOnly) {
    EXPECT_EQ(cause(head + "  " + tail), " ");
    EXPECT_EQ(cause(head + "    " + tail), "   ");
    EXPECT_FALSE(matches(head + " " + tail)) << "one blank is no cause and a blank";
    EXPECT_FALSE(matches(head + tail));
}

TEST(AppraisalSearch, EndsTheCauseAtALineEnd) {
    EXPECT_EQ(cause(head + "a\n" + tail), "a");
    EXPECT_EQ(cause(head + "a\r" + tail), "a");
    EXPECT_EQ(cause(head + "a \n " + tail), "a ");
    EXPECT_EQ(cause(head + "a  \r\n \t\n" + tail), "a  ");
}

TEST(AppraisalSearch, AllowsOnlyBlanksBehindALineEnd) {
    EXPECT_FALSE(matches(head + "a\nb " + tail));
    EXPECT_FALSE(matches(head + "a\r b " + tail));
    EXPECT_FALSE(matches(head + "a \n \"\n " + tail));
}

TEST(AppraisalSearch, FindsNoCauseThatStartsWithALineEnd) {
    EXPECT_FALSE(matches(head + "\n" + tail));
    EXPECT_FALSE(matches(head + "\n  " + tail));
    EXPECT_FALSE(matches(head + "\na " + tail));
    EXPECT_EQ(cause(head + " \n" + tail), " ");
}

TEST(AppraisalSearch, IsNotMisledByAHeadThatFails) {
    EXPECT_EQ(cause("kernel: [" + record), "missing-hash");
    EXPECT_EQ(cause("kernel: [ 1.0][ T1] audit: " + record), "missing-hash");
    EXPECT_EQ(cause(head.substr(0, head.size() - 1) + record), "missing-hash");
    EXPECT_EQ(cause("kernel: kernel: kernel: [kernel: [" + record), "missing-hash");
    const std::string line = "kernel: [ 1.0][ Tx] " + record;
    EXPECT_EQ(search(line)->front(), record);
}

TEST(AppraisalSearch, GoesOnBehindAHeadWhoseCauseCannotBe) {
    EXPECT_EQ(cause(head + "a\n" + record), "missing-hash");
    EXPECT_EQ(search(head + "a\n" + record)->front(), record);
    EXPECT_EQ(cause(head + "\n" + head + "b\r" + record), "missing-hash");
}

TEST(AppraisalSearch, TakesTheLeftmostCompleteHead) {
    const std::string line = head + "first " + record;
    EXPECT_EQ(cause(line), "first " + head + "missing-hash");
    EXPECT_EQ(search(line)->front(), line);
    EXPECT_EQ(group("kernel: [ 9.9][ T9] audit: type=1800 audit(9:9): pid=9 uid=9 auid=9 ses=9 "
                    "op=appraise_data cause=a " +
                        record,
                    2),
              "9");
}

TEST(AppraisalSearch, TakesACompleteHeadWhoseCauseIsTheBeginningOfTheNext) {
    EXPECT_EQ(cause(head + head + "a " + tail), head + "a");
}

TEST(AppraisalSearch, DoesNotCountAHeadInsideAQuotedValue) {
    EXPECT_FALSE(matches("x comm=\"" + head + "a\" " + tail.substr(tail.find("name"))));
    EXPECT_FALSE(matches("kernel: [ comm=\"vmt\" name=\"" + head +
                         "a\" dev=\"d\" ino=1 res=0 "
                         "errno=0"));
    const std::string named = head + "a comm=\"c\" name=\"" + head +
                              "b\" dev=\"d\" ino=1 res=0 "
                              "errno=0";
    EXPECT_EQ(cause(named), "a");
    EXPECT_EQ(group(named, fileGroup), head + "b");
}

TEST(AppraisalSearch, TakesTheLastTail) {
    const std::string line = head + "a " + tail + " " + tail;
    EXPECT_EQ(cause(line), "a " + tail);
    EXPECT_EQ(cause(record + " " + record), "missing-hash " + tail + " " + head + "missing-hash");
}

TEST(AppraisalSearch, FindsNothingBeforeAFinalLineEnd) {
    EXPECT_FALSE(matches(record + "\n"));
    EXPECT_FALSE(matches(record + "\r"));
    EXPECT_FALSE(matches(record + "\r\n"));
    EXPECT_FALSE(matches(record + " "));
    EXPECT_FALSE(matches(record + "\nerrno=0"));
    EXPECT_FALSE(matches(record + "\0"s));
}

TEST(AppraisalSearch, TakesVerticalTabAndFormFeedForBlanks) {
    for (const char blank : " \t\n\v\f\r"s) {
        std::string line = record;
        for (char& c : line) {
            c = c == ' ' ? blank : c;
        }
        line.replace(0, 8, "kernel: ");
        EXPECT_TRUE(matches(line)) << static_cast<int>(blank);
    }
}

// The bytes of wider character sets, and the separators that are no blanks either.
TEST(AppraisalSearch, TakesNoOtherByteForABlank) {
    for (int code = 0; code < 256; ++code) {
        const char byte = static_cast<char>(code);
        std::string line = record;
        line[line.find(" pid")] = byte;
        EXPECT_EQ(matches(line), " \t\n\v\f\r"s.find(byte) != std::string::npos) << code;
    }
    EXPECT_FALSE(matches(head + "a\x85" + tail));
    EXPECT_FALSE(matches(head + "a\xa0" + tail));
    EXPECT_EQ(cause(head + "a\x85 " + tail), "a\x85");
}

TEST(AppraisalSearch, TakesOnlyTheTenDigits) {
    for (int code = 0; code < 256; ++code) {
        const char byte = static_cast<char>(code);
        std::string line = record;
        line[line.find("115")] = byte;
        EXPECT_EQ(matches(line), byte >= '0' && byte <= '9') << code;
    }
    EXPECT_FALSE(matches(head + "a " + tail + "\xb2"));
}

TEST(AppraisalSearch, TakesEveryByteButLineEndsInACause) {
    for (int code = 0; code < 256; ++code) {
        const char byte = static_cast<char>(code);
        EXPECT_EQ(matches(head + "a" + byte + "b " + tail), byte != '\n' && byte != '\r') << code;
    }
}

TEST(AppraisalSearch, TakesEveryByteButAQuoteInAValue) {
    for (int code = 0; code < 256; ++code) {
        const char byte = static_cast<char>(code);
        std::string line = record;
        line.replace(line.find("nohash\""), 6, std::string("no") + byte + "hash");
        EXPECT_EQ(matches(line), byte != '"') << code;
    }
}

TEST(AppraisalSearch, NeedsADigitInEveryNumber) {
    for (const char* const number : {"10]", "1795226825.572:11", "115", "0 auid", "4294967295 ses",
                                     "4294967295 op", "392", "0 errno"}) {
        std::string line = record;
        const std::string digits = ".:0123456789";
        const std::size_t start = line.find(number);
        line.erase(start, line.find_first_not_of(digits, start) - start);
        EXPECT_FALSE(matches(line)) << number;
    }
    EXPECT_FALSE(matches(record.substr(0, record.size() - 1)));
    EXPECT_FALSE(matches("kernel: [ " + record.substr(record.find("][")))) << "the stamp";
}

TEST(AppraisalSearch, NeedsAValueBetweenQuotes) {
    EXPECT_FALSE(matches(head + "a comm=\"\" name=\"n\" dev=\"d\" ino=1 res=0 errno=0"));
    EXPECT_FALSE(matches(head + "a comm=\"c\" name=\"\" dev=\"d\" ino=1 res=0 errno=0"));
    EXPECT_FALSE(matches(head + "a comm=\"c\" name=\"n\" dev=\"\" ino=1 res=0 errno=0"));
    EXPECT_TRUE(matches(head + "a comm=\"c\" name=\"n\" dev=\"d\" ino=1 res=0 errno=0"));
}

TEST(AppraisalSearch, TakesPointsAndColonsWhereTheStampsHaveThem) {
    EXPECT_TRUE(matches("kernel: [...][T0] audit: type=1800 audit(:.:): pid=1 uid=1 auid=1 ses=1 "
                        "op=appraise_data cause=a " +
                        tail));
    EXPECT_FALSE(matches("kernel: [1:1][T0] audit: type=1800 audit(1): pid=1 uid=1 auid=1 ses=1 "
                         "op=appraise_data cause=a " +
                         tail));
}

TEST(AppraisalSearch, FindsNothingInEveryShorterOrDamagedRecord) {
    for (std::size_t place = 0; place < record.size(); ++place) {
        std::string shorter = record;
        shorter.erase(place, 1);
        EXPECT_TRUE(searchesAgree(shorter)) << place;
        for (const char other : {'x', ' ', '7', '"'}) {
            std::string changed = record;
            changed[place] = other;
            EXPECT_TRUE(searchesAgree(changed)) << other << " at " << place;
        }
        EXPECT_FALSE(matches(record.substr(0, place))) << place;
        EXPECT_FALSE(matches(record.substr(place + 1))) << place;
    }
    EXPECT_FALSE(matches(""));
}

// A locale in which further bytes are blanks and digits.
struct StrangeBlanks : std::ctype<char> {
    StrangeBlanks() : std::ctype<char>(table()) {}

    static const mask* table() {
        static mask masks[table_size];
        std::copy_n(classic_table(), table_size, masks);
        masks[0x85] |= space;
        masks[0x78] |= digit;
        return masks;
    }
};

// The standard engine takes the global locale when it is constructed; the search must not.
TEST(AppraisalSearch, DoesNotDependOnTheGlobalLocale) {
    const Regex before = Regex::compile(appraisalPattern, &appraisalSearch);
    const std::string strange = head + "a\x85" + tail;
    const std::locale usual =
        std::locale::global(std::locale(std::locale::classic(), new StrangeBlanks));
    const bool engineChanges =
        Regex::compile(appraisalPattern).searchByPattern(strange).has_value();
    const bool found = before.search(strange).has_value();
    const bool recordFound = before.search(record).has_value();
    std::locale::global(usual);
    EXPECT_TRUE(engineChanges) << "this locale is meant to mislead";
    EXPECT_FALSE(found);
    EXPECT_TRUE(recordFound);
}

} // namespace

} // namespace Vestrel::Tests
