// SPDX-License-Identifier: Apache-2.0
// Tests that refused messages are counted and the counts reported.
#include "tests/platform/LogTest.h"
#include "tests/platform/LoopTest.h"

#include <gtest/gtest.h>

namespace Vestrel::Tests {

namespace {

using namespace std::chrono_literals;
using Orvo::Duration;
using Zell::LogFacility;
using Zell::LogHandle;

class LogSuppression : public LogTest {
protected:
    LogSuppression() { LogFacility::defaultLimitIs({1, Duration(10s)}); }

    LogHandle first = handle(firstRecord);
    LogHandle second = handle(secondRecord);
};

TEST_F(LogSuppression, IsReportedBeforeTheNextMessageThatIsAllowed) {
    EXPECT_EQ(allowed(first, 4), 1);
    EXPECT_TRUE(messages.empty());
    now += 10s;
    EXPECT_EQ(allowed(first, 1), 1);
    EXPECT_EQ(messages, Messages{"FIRST: 3 messages suppressed"});
}

TEST_F(LogSuppression, IsReportedOnce) {
    allowed(first, 2);
    now += 10s;
    allowed(first, 1);
    LogFacility::reportSuppressed(true);
    now += 10s;
    allowed(first, 1);
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(LogSuppression, IsReportedWhenTheIntervalHasPassed) {
    allowed(first, 3);
    now += 9s;
    LogFacility::reportSuppressed();
    EXPECT_TRUE(messages.empty());
    now += 1s;
    LogFacility::reportSuppressed();
    EXPECT_EQ(messages, Messages{"FIRST: 2 messages suppressed"});
    LogFacility::reportSuppressed();
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(LogSuppression, IsNotDueWhileMessagesAreStillRefused) {
    LogFacility::defaultLimitIs({1, Duration(1h)});
    allowed(first, 2);
    now += 59min;
    allowed(first, 1);
    now += 59min;
    LogFacility::reportSuppressed();
    EXPECT_EQ(messages, Messages());
    now += 1min;
    LogFacility::reportSuppressed();
    EXPECT_EQ(messages, Messages{"FIRST: 2 messages suppressed"});
}

TEST_F(LogSuppression, IsReportedOfEveryKindAtTheHostsEnd) {
    allowed(first, 2);
    allowed(second, 3);
    allowed(second, 4, 99);
    LogFacility::reportSuppressed(true);
    std::ranges::sort(messages);
    EXPECT_EQ(messages, (Messages{"FIRST: 1 messages suppressed", "SECOND: 2 messages suppressed",
                                  "SECOND: 3 messages suppressed"}));
}

TEST_F(LogSuppression, ReportCarriesNoArgumentsAndCountsAsNoMessage) {
    std::size_t arguments = 99;
    LogFacility::sinkIs(
        [&](const Zell::LogMessage& message) { arguments = message.arguments.size(); });
    const std::uint64_t before = LogFacility::messages();
    allowed(first, 2);
    LogFacility::reportSuppressed(true);
    EXPECT_EQ(arguments, 0U);
    EXPECT_EQ(LogFacility::messages(), before);
}

TEST_F(LogSuppression, IsReportedOfTheKindThatMakesRoomInAFullTable) {
    EXPECT_EQ(allowed(first, 3), 1);
    for (unsigned hash = 1; hash < LogFacility::maxBuckets; ++hash) {
        ASSERT_EQ(allowed(second, 1, hash), 1);
    }
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(allowed(second, 1, LogFacility::maxBuckets), 1);
    EXPECT_EQ(messages, Messages{"FIRST: 2 messages suppressed"});
    EXPECT_EQ(allowed(first, 1), 1) << "its limit starts anew";
}

TEST_F(LogSuppression, KeepsTheKindThatWasUsedLast) {
    allowed(first, 1);
    for (unsigned hash = 1; hash < LogFacility::maxBuckets; ++hash) {
        allowed(second, 1, hash);
    }
    EXPECT_EQ(allowed(first, 1), 0);
    for (unsigned hash = 1; hash < LogFacility::maxBuckets; ++hash) {
        allowed(second, 1, LogFacility::maxBuckets + hash);
    }
    EXPECT_EQ(allowed(first, 1), 0);
    EXPECT_EQ(allowed(second, 1, 1), 1) << "unused for longest";
}

// With an event loop, which runs on the real clock.
class LogSuppressionByTheLoop : public LoopTest {
protected:
    // 20 ms an interval. The facility's clock stands still until the test moves it, so that nothing
    // falls due before.
    LogSuppressionByTheLoop() {
        LogFacility::clockIs([this] { return now; });
        LogFacility::sinkIs([this](const Zell::LogMessage& message) {
            messages.push_back(Zell::logLine(message));
        });
    }

    void TearDown() override {
        LogFacility::clockIs(nullptr);
        LogFacility::sinkIs(Zell::journalOrSyslogSink());
        LoopTest::TearDown();
    }

    void refuse(int messagesRefused) {
        for (int i = 0; i <= messagesRefused; ++i) {
            EXPECT_EQ(limited.okToLog(limited.idHash()), i == 0);
        }
    }

    bool reported(std::size_t count) {
        return dispatchUntil([&] { return messages.size() == count; });
    }

    std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
    std::vector<std::string> messages;
    LogHandle limited{&firstRecord, Duration(20ms), 1.0, 1, 0};
};

TEST_F(LogSuppressionByTheLoop, IsReportedWhenNoMoreCame) {
    refuse(2);
    now += 20ms;
    ASSERT_TRUE(reported(1));
    EXPECT_EQ(messages, Messages{"FIRST: 2 messages suppressed"});
}

TEST_F(LogSuppressionByTheLoop, IsReportedWhenTheTimerFindsItNotYetDue) {
    refuse(1);
    bool early = false;
    loop->afterIs(Duration(40ms), [&] { early = true; });
    ASSERT_TRUE(dispatchUntil([&] { return early; }));
    EXPECT_TRUE(messages.empty());
    now += 20ms;
    EXPECT_TRUE(reported(1));
}

TEST_F(LogSuppressionByTheLoop, IsReportedForEachSeriesOfRefusals) {
    refuse(1);
    now += 20ms;
    ASSERT_TRUE(reported(1));
    refuse(3);
    now += 20ms;
    ASSERT_TRUE(reported(2));
    EXPECT_EQ(messages.back(), "FIRST: 3 messages suppressed");
}

TEST_F(LogSuppressionByTheLoop, WaitsForTheNextMessageWhereNoTimerCanBeHad) {
    loop->exitIs(0);
    ASSERT_EQ(loop->run(), 0); // a loop that has ended takes no timers
    refuse(2);
    EXPECT_EQ(traces, (std::vector<std::string>(
                          2, "timerIs: sd_event_add_time_relative: Stale file handle")));
    now += 20ms;
    EXPECT_TRUE(limited.okToLog(limited.idHash()));
    EXPECT_EQ(messages, Messages{"FIRST: 2 messages suppressed"});
}

TEST_F(LogSuppressionByTheLoop, IsReportedByALoopMadeLater) {
    loop = nullptr;
    refuse(1);
    loop = Zell::ActivityFacility::activityManager();
    EXPECT_FALSE(limited.okToLog(limited.idHash()));
    loop = nullptr; // takes its timer along
    loop = Zell::ActivityFacility::activityManager();
    EXPECT_FALSE(limited.okToLog(limited.idHash()));
    now += 20ms;
    ASSERT_TRUE(reported(1));
    EXPECT_EQ(messages, Messages{"FIRST: 3 messages suppressed"});
}

} // namespace

} // namespace Vestrel::Tests
