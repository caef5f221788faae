// SPDX-License-Identifier: Apache-2.0
// Tests of the log's limits as the sender of kernel lines meets them.
#include "logmsg/LogCall.h"
#include "logmsg/LogMessages.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/syslog/SyslogTest.h"

#include <chrono>

namespace Vestrel::Tests {

namespace {

using namespace std::chrono_literals;
using Orvo::Duration;
using Zell::LogFacility;

class SyslogLimit : public SyslogTest {
protected:
    SyslogLimit() { start(); }

    // Sends records of failed appraisals through the socket and returns what was raised.
    Texts storm(int lines) {
        clear();
        for (int i = 0; i < lines; ++i) {
            EXPECT_TRUE(send(recordOf(i)));
            dispatch();
        }
        return messages;
    }

    static std::string recordOf(int file) {
        const std::size_t name = realLine.find("nohash");
        std::string line(realLine.substr(0, name));
        line += std::to_string(file);
        return line += realLine.substr(name + 6);
    }

    static std::string raised(int file) {
        std::string name("/t/");
        name += std::to_string(file);
        return integrityMessage("missing-hash", name, "vmt");
    }

    static std::string suppressed(int count) {
        std::string text("VESTREL_INTEGRITY: ");
        text += std::to_string(count);
        text += " messages suppressed";
        return text;
    }
};

TEST_F(SyslogLimit, LetsAHundredThroughInAStorm) {
    const Texts raisedTexts = storm(1000);
    ASSERT_EQ(raisedTexts.size(), 100U);
    EXPECT_EQ(raisedTexts.front(), raised(0));
    EXPECT_EQ(raisedTexts.back(), raised(99));
}

TEST_F(SyslogLimit, LetsAnotherHundredThroughInTenSeconds) {
    storm(1000);
    now += 9s;
    EXPECT_EQ(storm(1000).size(), 90U + 1U) << "and the report of those before";
    now += 10s;
    EXPECT_EQ(storm(1000).size(), 100U + 1U);
}

TEST_F(SyslogLimit, ReadsAllLinesOfAStorm) {
    storm(1000);
    EXPECT_EQ(linesHandled(), 1000);
}

TEST_F(SyslogLimit, ReportsTheNumberOfSuppressedMessagesBeforeTheNext) {
    storm(350);
    now += 1s;
    EXPECT_EQ(storm(1), (Texts{suppressed(250), raised(0)}));
}

TEST_F(SyslogLimit, ReportsTheNumberWhenNoMoreComes) {
    storm(350);
    clear();
    now += 10s;
    LogFacility::reportSuppressed();
    EXPECT_EQ(messages, Texts{suppressed(250)});
    LogFacility::reportSuppressed();
    EXPECT_EQ(messages.size(), 1U) << "once";
}

TEST_F(SyslogLimit, ReportsNothingThatWasNotSuppressed) {
    EXPECT_EQ(storm(100).size(), 100U);
    now += 10s;
    LogFacility::reportSuppressed(true);
    EXPECT_EQ(messages.size(), 100U);
}

TEST_F(SyslogLimit, IsSharedByFailuresOfDifferentFilesCausesAndCommands) {
    LogFacility::defaultLimitIs({1, Duration(10s)});
    sm->processKernelMsg(realLine);
    for (const char* const part : {"missing-hash", "/t/nohash", "vmt"}) {
        std::string line(realLine);
        line[line.find(part)] = 'X';
        sm->processKernelMsg(line);
    }
    EXPECT_EQ(messages.size(), 1U) << "no argument takes part in the limit of this record";
}

TEST_F(SyslogLimit, IsNotUsedUpByLinesThatAreNoRecords) {
    LogFacility::defaultLimitIs({1, Duration(10s)});
    for (int i = 0; i < 50; ++i) {
        sm->processKernelMsg("kernel: [ 1.0][ T1] something else");
    }
    sm->processKernelMsg(realLine);
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(SyslogLimit, IsNotSharedWithCertificatesThatCouldNotBeLoaded) {
    storm(1000);
    clear();
    LogHandles handles;
    log(handles.VESTREL_INTEGRITY_LOAD_KEY_FAIL, Orvo::String("/a.der"), Orvo::String(".ima"),
        "Bad message");
    EXPECT_EQ(messages, Texts{"VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate /a.der "
                              "in keyring (.ima). Bad message."});
}

TEST_F(SyslogLimit, OutlivesTheStateMachine) {
    storm(1000);
    stop();
    start();
    EXPECT_EQ(storm(10), Texts{});
}

} // namespace

} // namespace Vestrel::Tests
