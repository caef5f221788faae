// SPDX-License-Identifier: Apache-2.0
// Tests what reflection shows of the process itself: its trace events and its log facility.
#include "platform/brisklog/Brisklog.h"
#include "platform/zell/LogFacility.h"
#include "platform/zell/LogHandle.h"
#include "platform/zell/TypeData.h"
#include "platform/zell/UtcTime.h"

#include <gtest/gtest.h>

namespace Vestrel::Tests {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

TEST(UtcTime, IsWrittenToTheMillisecond) {
    EXPECT_EQ(Zell::utcText(system_clock::time_point(seconds(1795293559) + milliseconds(42))),
              "2026-11-21T20:39:19.042Z");
    EXPECT_EQ(Zell::utcText(system_clock::time_point(seconds(1) + milliseconds(999))),
              "1970-01-01T00:00:01.999Z");
}

TEST(UtcTime, OfTheEpochIsEmpty) {
    EXPECT_EQ(Zell::utcText({}), "");
}

TEST(ProcessView, ShowsATraceEventWithItsText) {
    Brisklog::eventsDelAll();
    Brisklog::eventIs(3, "Handle", "void f()", {"a", "b"});
    const Brisklog::Event event = Brisklog::events().front();
    const Zell::TypeData* const type = Zell::registeredType("Brisklog::Event");
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(type->value(&event, 0), Orvo::Value(static_cast<std::int64_t>(event.sequence)));
    EXPECT_EQ(type->value(&event, 1), Orvo::Value(Orvo::String(Zell::utcText(event.time))));
    EXPECT_EQ(type->value(&event, 2), Orvo::Value(std::int64_t{3}));
    EXPECT_EQ(type->value(&event, 3), Orvo::Value(Orvo::String("Handle")));
    EXPECT_EQ(type->value(&event, 4), Orvo::Value(Orvo::String("void f(): ab")));
    Brisklog::eventsDelAll();
}

TEST(ProcessView, ShowsHowManyMessagesWereRaisedAndSuppressed) {
    static const Zell::LogDescriptor record{"VIEW", "", "", "", Zell::severityWarning, 0};
    Zell::LogFacility::sinkIs([](const Zell::LogMessage&) {});
    Zell::LogHandle handle(&record, Orvo::Duration(), 1.0, 1, 0);
    const auto messages = static_cast<std::int64_t>(Zell::LogFacility::messages());
    const auto suppressed = static_cast<std::int64_t>(Zell::LogFacility::suppressed());
    EXPECT_TRUE(handle.okToLog(7));
    handle.log({});
    EXPECT_FALSE(handle.okToLog(7));
    const Zell::TypeData& type = Zell::LogFacility::typeData();
    EXPECT_EQ(type.value(nullptr, 0), Orvo::Value(messages + 1));
    EXPECT_EQ(type.value(nullptr, 1), Orvo::Value(suppressed + 1));
    Zell::LogFacility::clockIs(nullptr);
    Zell::LogFacility::sinkIs(nullptr);
}

} // namespace

} // namespace Vestrel::Tests
