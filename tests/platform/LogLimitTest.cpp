// SPDX-License-Identifier: Apache-2.0
// Tests of how many messages of one kind pass.
#include "tests/platform/LogTest.h"

#include <gtest/gtest.h>

namespace Vestrel::Tests {

namespace {

using namespace std::chrono_literals;
using Orvo::Duration;
using Zell::LogFacility;
using Zell::LogHandle;

class LogLimitTest : public LogTest {
protected:
    LogHandle first = handle(firstRecord);
};

TEST_F(LogLimitTest, IsAHundredInTenSecondsUnlessTheHostSaysOtherwise) {
    EXPECT_EQ(LogFacility::defaultLimit().burst, 100U);
    EXPECT_EQ(LogFacility::defaultLimit().interval, Orvo::Duration(10s));
    EXPECT_EQ(allowed(first, 150), 100);
}

TEST_F(LogLimitTest, IsWhatTheHostSays) {
    LogFacility::defaultLimitIs({3, Duration(1s)});
    EXPECT_EQ(LogFacility::defaultLimit().burst, 3U);
    EXPECT_EQ(allowed(first, 10), 3);
    now += 1s;
    EXPECT_EQ(allowed(first, 10), 3);
}

TEST_F(LogLimitTest, RefillsEvenlyOverTheInterval) {
    EXPECT_EQ(allowed(first, 200), 100);
    now += 1s;
    EXPECT_EQ(allowed(first, 200), 10);
    now += 500ms;
    EXPECT_EQ(allowed(first, 200), 5);
    now += 10s;
    EXPECT_EQ(allowed(first, 200), 100);
}

TEST_F(LogLimitTest, SavesUpNoMoreThanTheBurst) {
    now += 1h;
    EXPECT_EQ(allowed(first, 200), 100);
    now += 1h;
    EXPECT_EQ(allowed(first, 200), 100);
}

TEST_F(LogLimitTest, CountsEachHashByItself) {
    LogFacility::defaultLimitIs({2, Duration(10s)});
    EXPECT_EQ(allowed(first, 5, 1), 2);
    EXPECT_EQ(allowed(first, 5, 2), 2);
    EXPECT_EQ(allowed(first, 5, 1), 0);
}

TEST_F(LogLimitTest, IsSharedByHandlesOfOneRecord) {
    LogFacility::defaultLimitIs({4, Duration(10s)});
    LogHandle again = handle(firstRecord);
    EXPECT_EQ(allowed(first, 3), 3);
    EXPECT_EQ(allowed(again, 3), 1);
    EXPECT_EQ(allowed(first, 3), 0);
}

TEST_F(LogLimitTest, IsNotSharedByTwoRecords) {
    LogFacility::defaultLimitIs({4, Duration(10s)});
    LogHandle second = handle(secondRecord);
    EXPECT_EQ(allowed(first, 9), 4);
    EXPECT_EQ(allowed(second, 9), 4);
}

TEST_F(LogLimitTest, IsTheHandlesOwnWhereItNamesOne) {
    LogHandle own = handle(firstRecord, 2s, 3);
    EXPECT_EQ(allowed(own, 9), 3);
    now += 2s;
    EXPECT_EQ(allowed(own, 9), 3);
}

TEST_F(LogLimitTest, TakesWhatTheHandleLeavesOutFromTheFacility) {
    LogFacility::defaultLimitIs({4, Duration(10s)});
    LogHandle ownBurst = handle(firstRecord, 0s, 2);
    EXPECT_EQ(allowed(ownBurst, 9), 2);
    now += 5s;
    EXPECT_EQ(allowed(ownBurst, 9), 1);
    LogHandle ownInterval = handle(secondRecord, 2s, 0);
    EXPECT_EQ(allowed(ownInterval, 9), 4);
    now += 1s;
    EXPECT_EQ(allowed(ownInterval, 9), 2);
}

TEST_F(LogLimitTest, StretchesTheIntervalByTheBackoffForEachSeriesOfRefusals) {
    LogHandle backingOff = handle(firstRecord, 8s, 1, 2.0);
    EXPECT_EQ(allowed(backingOff, 5), 1); // from here on one in 16 s
    now += 15s;
    EXPECT_EQ(allowed(backingOff, 1), 0);
    now += 1s;
    EXPECT_EQ(allowed(backingOff, 5), 1); // from here on one in 32 s
    now += 31s;
    EXPECT_EQ(allowed(backingOff, 1), 0);
    now += 1s;
    EXPECT_EQ(allowed(backingOff, 1), 1);
}

TEST_F(LogLimitTest, ReturnsToTheIntervalAfterOneWithoutRefusals) {
    LogHandle backingOff = handle(firstRecord, 8s, 1, 2.0);
    EXPECT_EQ(allowed(backingOff, 2), 1);
    now += 16s;
    EXPECT_EQ(allowed(backingOff, 1), 1);
    now += 8s;
    EXPECT_EQ(allowed(backingOff, 1), 1);
}

TEST_F(LogLimitTest, StretchesNothingWithoutBackoff) {
    LogHandle steady = handle(firstRecord, 8s, 1, 1.0);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(allowed(steady, 5), 1);
        now += 8s;
    }
}

TEST_F(LogLimitTest, StretchesAnIntervalToAnHourAtMost) {
    LogHandle backingOff = handle(firstRecord, 30min, 1, 100.0);
    EXPECT_EQ(allowed(backingOff, 5), 1);
    now += 59min;
    EXPECT_EQ(allowed(backingOff, 1), 0);
    now += 1min;
    EXPECT_EQ(allowed(backingOff, 1), 1);
}

TEST_F(LogLimitTest, NeverShortensAnIntervalByTheBackoff) {
    LogHandle slow = handle(firstRecord, 3h, 12, 1.5);
    EXPECT_EQ(allowed(slow, 20), 12);
    now += 30min;
    EXPECT_LE(allowed(slow, 20), 2);
}

TEST_F(LogLimitTest, IsForgottenWithTheClock) {
    EXPECT_EQ(allowed(first, 150), 100);
    LogFacility::clockIs([this] { return now; });
    EXPECT_EQ(allowed(first, 150), 100);
}

TEST_F(LogLimitTest, RunsOnTheMonotonicClockWithoutOneOfTheHosts) {
    LogFacility::clockIs(nullptr);
    LogHandle slow = handle(firstRecord, 1h, 2);
    EXPECT_EQ(allowed(slow, 5), 2);
}

TEST_F(LogLimitTest, CountsRefusals) {
    const std::uint64_t before = LogFacility::suppressed();
    allowed(first, 103);
    EXPECT_EQ(LogFacility::suppressed(), before + 3);
}

} // namespace

} // namespace Vestrel::Tests
