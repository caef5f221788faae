// SPDX-License-Identifier: Apache-2.0
// Tests of the traces: levels, the text line, the ring, and the last line of a failed assertion.
#include "platform/brisklog/Brisklog.h"
#include "platform/duolog/Duolog.h"
#include "platform/zell/Assertion.h"
#include "platform/zell/TraceHandle.h"
#include "platform/zell/TraceHelper.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

using Zell::TraceHandle;

TraceHandle& traceHandle() {
    return TraceHandle::traceHandleIs("Tracer");
}

class Trace : public testing::Test {
protected:
    Trace() {
        Brisklog::eventsDelAll();
        Zell::traceLevelIs(1);
        Zell::traceSinkIs([this](const Zell::TraceLine& line) {
            lines.push_back(std::string(line.handle) + " " + std::to_string(line.level) + " " +
                            std::string(line.text));
        });
    }

    void TearDown() override {
        Zell::traceSinkIs(nullptr);
        Zell::traceLevelIs(1);
        Brisklog::limitsAre({});
        Brisklog::eventsDelAll();
    }

    std::vector<std::string> lines;
};

using Lines = std::vector<std::string>;

TEST_F(Trace, GoesToTheNextSinkOnceTheOneThatSetItHasEnded) {
    Lines after;
    Zell::traceSinkIs([&, mark = std::string("a text of the sink's own, on the heap")](
                          const Zell::TraceLine& line) {
        Zell::traceSinkIs([&after](const Zell::TraceLine& next) { after.emplace_back(next.text); });
        lines.push_back(mark + ", " + std::string(line.text));
    });
    Zell::traceLineIs({"handle", 1, "one"});
    Zell::traceLineIs({"handle", 1, "two"});
    EXPECT_EQ(lines, Lines{"a text of the sink's own, on the heap, one"});
    EXPECT_EQ(after, Lines{"two"});
}

TEST_F(Trace, MakesAHandleAtFirstUseWithTheLevelOfThatTime) {
    Zell::traceLevelIs(3);
    TraceHandle& handle = TraceHandle::traceHandleIs("made at three");
    EXPECT_EQ(handle.level(), 3);
    EXPECT_EQ(handle.name(), "made at three");
    EXPECT_EQ(&TraceHandle::traceHandleIs("made at three"), &handle);
    EXPECT_NE(&TraceHandle::traceHandleIs("another"), &handle);
}

TEST_F(Trace, SetsTheLevelOfEveryHandle) {
    TraceHandle& handle = TraceHandle::traceHandleIs("present");
    handle.levelIs(2);
    EXPECT_EQ(handle.level(), 2);
    Zell::traceLevelIs(5);
    EXPECT_EQ(handle.level(), 5);
}

TEST_F(Trace, IsEnabledUpToTheLevelOfTheHandle) {
    TraceHandle& handle = traceHandle();
    handle.levelIs(3);
    EXPECT_TRUE(handle.enabled(0));
    EXPECT_TRUE(handle.enabled(3));
    EXPECT_FALSE(handle.enabled(4));
    handle.levelIs(0);
    EXPECT_TRUE(handle.enabled(0));
    EXPECT_FALSE(handle.enabled(1));
}

TEST_F(Trace, OpensALineWithTheOperation) {
    {
        Zell::TraceHelper helper(traceHandle(), 5, "getKey");
        helper << "17"
               << ", "
               << ".ima";
        EXPECT_TRUE(lines.empty()) << "written when the helper goes";
    }
    EXPECT_EQ(lines, Lines{"Tracer 5 getKey: 17, .ima"});
}

TEST_F(Trace, DropsLinesWithoutASink) {
    Zell::traceSinkIs(nullptr);
    DUOLOG(1, "unseen");
    EXPECT_TRUE(lines.empty());
    EXPECT_EQ(Brisklog::events().size(), 1U);
}

struct Operations {
    static void traceValues(int number, const std::string& text) { DUOLOG(1, number, ", ", text); }
};

TEST_F(Trace, WritesTheSameEventToBothSinks) {
    Operations::traceValues(-7, "text");
    EXPECT_EQ(lines, Lines{"Tracer 1 traceValues: -7, text"});
    const auto events = Brisklog::events();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].level, 1);
    EXPECT_EQ(events[0].handle, "Tracer");
    EXPECT_EQ(events[0].values, (Lines{"-7", ", ", "text"}));
}

TEST_F(Trace, OpensTheFormatOfTheRingWithTheFullSignature) {
    Operations::traceValues(1, "x");
    const Brisklog::Event event = Brisklog::events().at(0);
    EXPECT_NE(event.format.find("Operations::traceValues(int, const"), std::string::npos)
        << event.format;
    EXPECT_TRUE(event.format.ends_with("): %s%s%s")) << event.format;
    EXPECT_TRUE(event.text().ends_with("): 1, x")) << event.text();
}

TEST_F(Trace, EvaluatesNothingOfAStatementThatIsOff) {
    int evaluated = 0;
    DUOLOG(2, ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_TRUE(lines.empty());
    EXPECT_TRUE(Brisklog::events().empty());
    Zell::traceLevelIs(2);
    DUOLOG(2, ++evaluated);
    EXPECT_EQ(evaluated, 1);
}

TEST_F(Trace, NamesTheOperationThatItIsGiven) {
    const Duolog::Operation operation = DUOLOG_OPERATION;
    [&] { DUOLOG_IN(operation, 1, "inside"); }();
    EXPECT_EQ(lines, Lines{"Tracer 1 TestBody: inside"});
}

TEST_F(Trace, ReportsAFailedCallWithItsCauseAndKeepsErrno) {
    Zell::traceSinkIs([this](const Zell::TraceLine& line) {
        lines.emplace_back(line.text);
        errno = EIO;
    });
    errno = ENOENT;
    DUOLOG_FAILED("open");
    EXPECT_EQ(errno, ENOENT);
    DUOLOG_FAILED("open", ", file ", "name");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(lines, (Lines{"TestBody: open: No such file or directory",
                            "TestBody: open: No such file or directory, file name"}));
}

TEST_F(Trace, KeepsErrnoAlsoWhenOff) {
    traceHandle().levelIs(0);
    errno = ENOENT;
    DUOLOG_FAILED("open");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(lines.empty());
}

TEST_F(Trace, TracesAFailedCallInTheNameOfAnotherOperation) {
    errno = EMFILE;
    const Duolog::Operation operation{"createWatch", "void createWatch()"};
    DUOLOG_FAILED_IN(operation, "pipe2");
    EXPECT_EQ(lines, Lines{"Tracer 1 createWatch: pipe2: Too many open files"});
    EXPECT_EQ(Brisklog::events().at(0).text(), "void createWatch(): pipe2: Too many open files");
}

TEST_F(Trace, NumbersAndDatesTheEventsOfTheRing) {
    const auto before = std::chrono::system_clock::now();
    Brisklog::eventIs(1, "handle", "f()", {"a"});
    Brisklog::eventIs(1, "handle", "f()", {});
    const auto events = Brisklog::events();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[1].sequence, events[0].sequence + 1);
    EXPECT_GE(events[0].time, before);
    EXPECT_EQ(events[1].format, "f(): ");
    EXPECT_EQ(events[1].text(), "f(): ");
}

TEST_F(Trace, DropsTheOldestBeyondTheNumberOfEvents) {
    Brisklog::limitsAre({3, 1000, 1000});
    const std::uint64_t dropped = Brisklog::dropped();
    for (const char* const value : {"1", "2", "3", "4", "5"}) {
        Brisklog::eventIs(1, "handle", "f()", {value});
    }
    EXPECT_EQ(Brisklog::dropped(), dropped + 2);
    ASSERT_EQ(Brisklog::events().size(), 3U);
    EXPECT_EQ(Brisklog::events().front().values.front(), "3");
    Brisklog::limitsAre({1, 1000, 1000});
    EXPECT_EQ(Brisklog::dropped(), dropped + 4);
    EXPECT_EQ(Brisklog::events().front().values.front(), "5");
}

TEST_F(Trace, DropsTheOldestBeyondTheNumberOfBytes) {
    Brisklog::limitsAre({1000, 200, 1000});
    for (int i = 0; i < 10; ++i) {
        Brisklog::eventIs(1, "h", "f()", {std::string(80, static_cast<char>('0' + i))});
    }
    ASSERT_EQ(Brisklog::events().size(), 2U);
    EXPECT_EQ(Brisklog::events().back().values.front(), std::string(80, '9'));
    Brisklog::eventIs(1, "h", "f()", {std::string(300, 'x')});
    EXPECT_TRUE(Brisklog::events().empty()) << "one that is too large by itself is not kept either";
    Brisklog::eventIs(1, "h", "f()", {"small"});
    EXPECT_EQ(Brisklog::events().size(), 1U);
}

TEST_F(Trace, CutsLongValues) {
    Brisklog::limitsAre({10, 1000, 4});
    Brisklog::eventIs(1, "h", "f()", {"abcdef", "ab"});
    EXPECT_EQ(Brisklog::events().at(0).values, (Lines{"abcd", "ab"}));
}

TEST_F(Trace, DoesNotCountDeletedEventsAsDropped) {
    Brisklog::eventIs(1, "h", "f()", {});
    const std::uint64_t dropped = Brisklog::dropped();
    Brisklog::eventsDelAll();
    EXPECT_TRUE(Brisklog::events().empty());
    EXPECT_EQ(Brisklog::dropped(), dropped);
}

void keyCollMustBe(bool keyColl) {
    ZELL_ASSERT("Asserter", keyColl);
}

TEST_F(Trace, PassesAnAssertionThatHolds) {
    keyCollMustBe(true);
    EXPECT_TRUE(lines.empty());
}

TEST_F(Trace, EndsTheProcessWithOneLineWhenAnAssertionFails) {
    EXPECT_EXIT(keyCollMustBe(false), testing::KilledBySignal(SIGABRT),
                "^Asserter:[0-9]+: keyCollMustBe: assertion failed: keyColl\n$");
}

TEST_F(Trace, TracesAFailedAssertionAlsoWhenLevelsAreOff) {
    Zell::traceLevelIs(0);
    Zell::traceSinkIs([](const Zell::TraceLine& line) {
        dprintf(STDERR_FILENO, "traced at %d: %.*s\n", line.level,
                static_cast<int>(line.text.size()), line.text.data());
    });
    EXPECT_EXIT(keyCollMustBe(false), testing::KilledBySignal(SIGABRT),
                "^traced at 0: keyCollMustBe: Asserter:[0-9]+: keyCollMustBe: assertion failed: "
                "keyColl\nAsserter:");
}

TEST_F(Trace, NamesTheTextOfAnAssertionThatHasItsOwn) {
    EXPECT_EXIT(ZELL_ASSERT_TEXT("Asserter", 1 + 1 == 3, "one plus one"),
                testing::KilledBySignal(SIGABRT), "assertion failed: one plus one\n");
}

} // namespace

} // namespace Vestrel::Tests
