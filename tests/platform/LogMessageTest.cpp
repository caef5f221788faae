// SPDX-License-Identifier: Apache-2.0
// Tests of a log message before it is limited: record, arguments, hash, text, delivery.
#include "platform/zell/LogString.h"
#include "tests/platform/LogTest.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <set>
#include <stdexcept>
#include <string>

namespace Vestrel::Tests {

namespace {

using namespace std::string_view_literals;
using Orvo::Duration;
using Zell::LogDescriptor;
using Zell::LogHandle;
using Zell::LogString;
using Zell::Impl::logArgsHash;

LogString logString(std::initializer_list<std::string_view> texts) {
    LogString result;
    for (const std::string_view text : texts) {
        result.strIs(result.argumentCount++, text);
    }
    return result;
}

TEST(LogDescriptor, IsSixWordsInTheirOrder) {
    EXPECT_EQ(offsetof(LogDescriptor, name), 0U);
    EXPECT_EQ(offsetof(LogDescriptor, format), sizeof(void*));
    EXPECT_EQ(offsetof(LogDescriptor, explanation), 2 * sizeof(void*));
    EXPECT_EQ(offsetof(LogDescriptor, recommendedAction), 3 * sizeof(void*));
    EXPECT_EQ(offsetof(LogDescriptor, severity), 4 * sizeof(void*));
    EXPECT_EQ(offsetof(LogDescriptor, reserved), 4 * sizeof(void*) + 4);
    EXPECT_EQ(sizeof(LogDescriptor), 4 * sizeof(void*) + 8);
}

TEST(LogDescriptor, MarksActionsWithOneByte) {
    EXPECT_EQ("\x01"sv, Zell::contactSupportIfItPersists);
    EXPECT_EQ("\x02"sv, Zell::noActionIsRequired);
    EXPECT_EQ(Zell::severityWarning, 4);
}

TEST(LogString, IsEmptyUntilSet) {
    LogString arguments;
    EXPECT_EQ(arguments.argumentCount, 0U);
    EXPECT_EQ(arguments.hash, 0U);
    for (unsigned i = 0; i < LogString::maxArguments; ++i) {
        EXPECT_TRUE(arguments.str(i).empty());
    }
    arguments.strIs(7, "last");
    EXPECT_EQ(arguments.str(7), Orvo::String("last"));
    EXPECT_TRUE(arguments.str(6).empty());
}

TEST(LogString, EndsTheProcessBeyondItsArguments) {
    LogString arguments;
    EXPECT_DEATH(arguments.strIs(8, "x"), "LogString:[0-9]+: strIs: assertion failed: index < "
                                          "maxArguments\n");
    EXPECT_DEATH(arguments.str(8).size(), "LogString:[0-9]+: str: assertion failed: index < "
                                          "maxArguments\n");
}

TEST(LogString, GivesAsManyTextsAsItCounts) {
    LogString arguments = logString({"a", "b"});
    arguments.argumentCount = 3;
    ASSERT_EQ(arguments.texts().size(), 3U);
    EXPECT_EQ(arguments.texts()[1], Orvo::String("b"));
    EXPECT_TRUE(arguments.texts()[2].empty());
    EXPECT_TRUE(LogString().texts().empty());
    arguments.argumentCount = 9;
    EXPECT_DEATH(arguments.texts(), "LogString:[0-9]+: texts: assertion failed: argumentCount <= "
                                    "maxArguments\n");
}

TEST(LogArgsHash, CoversTheFirstArgumentsOnly) {
    const LogString one = logString({"a", "b", "c"});
    const LogString other = logString({"a", "b", "x"});
    EXPECT_EQ(logArgsHash(one, 2), logArgsHash(other, 2));
    EXPECT_NE(logArgsHash(one, 3), logArgsHash(other, 3));
    EXPECT_NE(logArgsHash(one, 1), logArgsHash(one, 2));
    EXPECT_NE(logArgsHash(one, 1), logArgsHash(logString({"x"}), 1));
}

TEST(LogArgsHash, IsTheSameOfNoArgument) {
    EXPECT_EQ(logArgsHash(logString({"a"}), 0), logArgsHash(logString({"b", "c"}), 0));
    EXPECT_EQ(logArgsHash(LogString(), 0), logArgsHash(LogString(), 5));
}

TEST(LogArgsHash, CoversAllWhenThereAreFewer) {
    const LogString arguments = logString({"a", "b"});
    EXPECT_EQ(logArgsHash(arguments, 2), logArgsHash(arguments, 3));
    EXPECT_EQ(logArgsHash(arguments, 2), logArgsHash(arguments, 1000));
}

TEST(LogArgsHash, KnowsWhereAnArgumentEnds) {
    EXPECT_NE(logArgsHash(logString({"ab", "c"}), 2), logArgsHash(logString({"a", "bc"}), 2));
    EXPECT_NE(logArgsHash(logString({"", "a"}), 2), logArgsHash(logString({"a", ""}), 2));
    EXPECT_NE(logArgsHash(logString({"a"}), 1), logArgsHash(logString({"a", ""}), 2));
}

TEST(LogArgsHash, DiffersBetweenManyArguments) {
    std::set<unsigned> hashes;
    for (int i = 0; i < 1000; ++i) {
        hashes.insert(logArgsHash(logString({"/etc/keys/ima/" + std::to_string(i)}), 1));
    }
    EXPECT_EQ(hashes.size(), 1000U);
}

TEST(LogHandle, KeepsItsParameters) {
    const LogHandle handle(&firstRecord, Duration(std::chrono::seconds(3)), 1.5, 7, 2);
    EXPECT_EQ(&handle.descriptor(), &firstRecord);
    EXPECT_EQ(handle.interval(), Duration(std::chrono::seconds(3)));
    EXPECT_EQ(handle.backoff(), 1.5);
    EXPECT_EQ(handle.burst(), 7U);
    EXPECT_EQ(handle.rateLimitArgsMask(), 2U);
}

TEST(LogHandle, TellsRecordsApartByTheirNames) {
    const LogHandle first(&firstRecord, {}, 1.0, 0, 0);
    const LogHandle again(&firstRecord, Duration(std::chrono::seconds(1)), 2.0, 1, 1);
    const LogHandle second(&secondRecord, {}, 1.0, 0, 0);
    EXPECT_EQ(first.idHash(), again.idHash());
    EXPECT_NE(first.idHash(), second.idHash());
}

class LogFormat : public LogTest {
protected:
    // The text that arguments give a message of that format.
    std::string formatted(const char* format, std::initializer_list<std::string_view> arguments) {
        LogDescriptor descriptor = firstRecord;
        descriptor.format = format;
        handle(descriptor).log(logString(arguments));
        return messages.back();
    }
};

TEST_F(LogFormat, PutsArgumentsInPlace) {
    EXPECT_EQ(formatted("a %s (%s).", {"one", "two"}), "FIRST: a one (two).");
    EXPECT_EQ(formatted("%s%s", {"one", "two"}), "FIRST: onetwo");
    EXPECT_EQ(formatted("none", {"one", "two"}), "FIRST: none");
    EXPECT_EQ(formatted("", {"one", "two"}), "FIRST: ");
}

TEST_F(LogFormat, ReadsAnArgumentTooFewAsEmpty) {
    EXPECT_EQ(formatted("<%s><%s><%s>", {"one"}), "FIRST: <one><><>");
}

TEST_F(LogFormat, KnowsNothingButTextAndPercent) {
    EXPECT_EQ(formatted("100%% %s %s", {"%s", "two"}), "FIRST: 100% %s two");
    EXPECT_EQ(formatted("%%s %s", {"%s", "two"}), "FIRST: %s %s");
    EXPECT_EQ(formatted("%d %", {"%s", "two"}), "FIRST: %d %");
}

TEST_F(LogFormat, IsThatOfTheRecordAfterOneOfAnother) {
    LogDescriptor other = firstRecord;
    other.name = "OTHER";
    for (int i = 0; i < 2; ++i) {
        handle(firstRecord).log(logString({"one", "two"}));
        EXPECT_EQ(messages.back(), "FIRST: one two");
        handle(other).log(logString({"one", "two"}));
        EXPECT_EQ(messages.back(), "OTHER: one two");
    }
}

class LogDelivery : public LogTest {};

TEST_F(LogDelivery, HandsRecordArgumentsAndTextToTheSink) {
    std::vector<std::string> seen;
    Zell::LogFacility::sinkIs([&](const Zell::LogMessage& message) {
        EXPECT_EQ(&message.descriptor, &firstRecord);
        seen = {std::string(message.text())};
        for (const Orvo::String& argument : message.arguments) {
            seen.emplace_back(argument.view());
        }
    });
    const std::uint64_t before = Zell::LogFacility::messages();
    handle(firstRecord).log(logString({"one", "two", "three"}));
    EXPECT_EQ(seen, (Messages{"one two", "one", "two", "three"}));
    EXPECT_EQ(Zell::LogFacility::messages(), before + 1);
}

// Raises further messages, longer and shorter ones, before it looks at its own.
TEST_F(LogDelivery, LeavesAMessageAloneWhileItsSinkRaisesOthers) {
    auto inner = handle(secondRecord);
    std::vector<std::string> lines;
    Zell::LogFacility::sinkIs([&](const Zell::LogMessage& message) {
        if (&message.descriptor == &firstRecord) {
            inner.log(logString({std::string(5000, 'l'), "longer"}));
            inner.log(logString({"s", "h"}));
        }
        lines.emplace_back(message.line);
    });
    auto outer = handle(firstRecord);
    for (int i = 0; i < 2; ++i) {
        lines.clear();
        outer.log(logString({"outer", "message"}));
        EXPECT_EQ(lines, (Messages{"SECOND: " + std::string(5000, 'l') + " longer\n",
                                   "SECOND: s h\n", "FIRST: outer message\n"}));
    }
}

TEST_F(LogDelivery, GoesOnAfterASinkThatThrew) {
    auto mine = handle(firstRecord);
    mine.log(logString({"a longer", "message"}));
    std::vector<std::string> lines;
    Zell::LogFacility::sinkIs([&](const Zell::LogMessage& message) {
        lines.emplace_back(message.line);
        throw std::runtime_error("full");
    });
    EXPECT_THROW(mine.log(logString({"one", "two"})), std::runtime_error);
    EXPECT_THROW(mine.log(logString({"three", ""})), std::runtime_error);
    EXPECT_EQ(lines, (Messages{"FIRST: one two\n", "FIRST: three \n"}));
}

TEST_F(LogDelivery, GoesToTheNextSinkOnceTheOneThatSetItHasEnded) {
    std::vector<std::string> after;
    Zell::LogFacility::sinkIs([&, mark = std::string("a text of the sink's own, on the heap")](
                                  const Zell::LogMessage& message) {
        Zell::LogFacility::sinkIs(
            [&after](const Zell::LogMessage& next) { after.emplace_back(next.text()); });
        messages.push_back(mark + ", " + std::string(message.text()));
        throw std::runtime_error("full");
    });
    auto mine = handle(firstRecord);
    EXPECT_THROW(mine.log(logString({"one", "1"})), std::runtime_error);
    mine.log(logString({"two", "2"}));
    EXPECT_EQ(messages, Messages{"a text of the sink's own, on the heap, one 1"});
    EXPECT_EQ(after, Messages{"two 2"});
}

TEST_F(LogDelivery, TellsTextAndLineOfAHostsOwnMessage) {
    const Zell::LogMessage whole{firstRecord, {}, "FIRST: text\n"};
    EXPECT_EQ(whole.withoutEnd(), "FIRST: text");
    EXPECT_EQ(whole.text(), "text");
    const Zell::LogMessage open{firstRecord, {}, "FIRST: text"};
    EXPECT_EQ(open.withoutEnd(), "FIRST: text");
    EXPECT_EQ(open.text(), "text");
    EXPECT_EQ((Zell::LogMessage{firstRecord, {}, "FIR"}).text(), "");
    EXPECT_EQ((Zell::LogMessage{firstRecord, {}, {}}).withoutEnd(), "");
}

TEST_F(LogDelivery, KeepsNothingOfAnEarlierMessage) {
    auto mine = handle(firstRecord);
    const std::string longest(100000, 'l'); // more than stands on the stack
    for (const std::string& text :
         {std::string("a longer text"), std::string("short"), longest, std::string()}) {
        mine.log(logString({text, "end"}));
        EXPECT_EQ(messages.back(), "FIRST: " + text + " end");
    }
}

TEST_F(LogDelivery, HandsOverLinesOfEveryLength) {
    auto mine = handle(firstRecord);
    for (std::size_t size = 0; size < 2100; ++size) {
        const std::string text(size, 't');
        mine.log(logString({text, "end"}));
        ASSERT_EQ(messages.back(), "FIRST: " + text + " end") << size;
    }
}

TEST_F(LogDelivery, DropsMessagesWithoutASink) {
    Zell::LogFacility::sinkIs(nullptr);
    const std::uint64_t before = Zell::LogFacility::messages();
    handle(firstRecord).log(logString({"one"}));
    EXPECT_EQ(Zell::LogFacility::messages(), before + 1);
    EXPECT_TRUE(messages.empty());
}

} // namespace

} // namespace Vestrel::Tests
