// SPDX-License-Identifier: Apache-2.0
// Tests of the log call: what it limits by, what it converts, what it raises.
#include "logmsg/LogCall.h"

#include "logmsg/LogMessages.h"
#include "platform/zell/LogFacility.h"
#include "platform/zell/LogSinks.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

// The linker puts the first in the place of LogHandle::log() in this program's own code, and lets
// the second stand for it.
void notedLog(Zell::LogHandle* handle, const Zell::LogString& arguments) //
    asm("__wrap_" LOG_HANDLE_LOG);
void handleLog(Zell::LogHandle* handle, const Zell::LogString& arguments) //
    asm("__real_" LOG_HANDLE_LOG);

namespace Vestrel::Tests {

namespace {

using Orvo::Duration;
using Orvo::String;
using Zell::LogFacility;
using Zell::LogHandle;
using Messages = std::vector<std::string>;

unsigned raisedHash = 0; // of the last log string that a handle's log was given

constexpr Zell::LogDescriptor fourTexts{
    "FOUR", "%s|%s|%s|%s", "", Zell::noActionIsRequired, Zell::severityWarning, 0};

// Counts how often it is made a text of.
class Counted {
public:
    explicit Counted(const char* text) : text_(text) {}

    explicit(false) operator String() const {
        ++conversions;
        return text_;
    }

    mutable int conversions = 0;

private:
    const char* text_;
};

class LogCall : public testing::Test {
protected:
    LogCall() {
        LogFacility::clockIs([] { return std::chrono::steady_clock::time_point(); });
        LogFacility::sinkIs([this](const Zell::LogMessage& message) {
            messages.push_back(Zell::logLine(message));
        });
    }

    void TearDown() override {
        LogFacility::clockIs(nullptr);
        LogFacility::sinkIs(Zell::journalOrSyslogSink());
    }

    // One message of each kind, by the first `limitedBy` arguments.
    static LogHandle oneOfAKind(unsigned limitedBy) {
        return {&fourTexts, Duration(std::chrono::hours(1)), 1.0, 1, limitedBy};
    }

    // The conversions of each of four arguments by a call.
    static std::vector<int> conversionsOf(LogHandle& handle) {
        const Counted a("a");
        const Counted b("b");
        const Counted c("c");
        const Counted d("d");
        log(handle, a, b, c, d);
        return {a.conversions, b.conversions, c.conversions, d.conversions};
    }

    static unsigned hashOf(const char* first, const char* second) {
        Zell::LogString arguments;
        arguments.argumentCount = 2;
        arguments.strIs(0, first);
        arguments.strIs(1, second);
        return Zell::Impl::logArgsHash(arguments, 2);
    }

    Messages messages;
};

TEST_F(LogCall, RaisesALoadFailureFromTextsOfThreeTypes) {
    LogHandles handles;
    const String file("/etc/keys/ima/a.der");
    std::string cause("Required key not available");
    char* const causeText = cause.data();
    log(handles.VESTREL_INTEGRITY_LOAD_KEY_FAIL, file, String(".ima"), causeText);
    EXPECT_EQ(messages,
              Messages{"VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate "
                       "/etc/keys/ima/a.der in keyring (.ima). Required key not available."});
}

TEST_F(LogCall, RaisesAnIntegrityErrorFromFourTexts) {
    LogHandles handles;
    log(handles.VESTREL_INTEGRITY, String("appraise_data"), std::string("missing-hash"),
        std::string("/t/nohash"), std::string("vmt"));
    EXPECT_EQ(messages, Messages{"VESTREL_INTEGRITY: Integrity error of type appraise_data "
                                 "(missing-hash), for file /t/nohash, invoked by vmt"});
}

TEST_F(LogCall, RaisesAMessageWithoutArguments) {
    LogHandle handle = oneOfAKind(3);
    log(handle);
    EXPECT_EQ(messages, Messages{"FOUR: |||"});
}

TEST_F(LogCall, HandsAllArgumentsOn) {
    std::size_t count = 0;
    LogFacility::sinkIs([&](const Zell::LogMessage& message) { count = message.arguments.size(); });
    LogHandle handle = oneOfAKind(1);
    log(handle, "1", "2", "3", "4", "5", "6", "7", "8");
    EXPECT_EQ(count, 8U);
}

TEST_F(LogCall, ConvertsEachArgumentOnceWhenAllowed) {
    for (const unsigned limitedBy : {0U, 2U, 4U, 9U}) {
        LogFacility::clockIs(nullptr); // starts the limits anew
        LogHandle handle = oneOfAKind(limitedBy);
        EXPECT_EQ(conversionsOf(handle), (std::vector{1, 1, 1, 1})) << limitedBy;
        EXPECT_EQ(messages.back(), "FOUR: a|b|c|d");
    }
}

TEST_F(LogCall, ConvertsNothingWhenRefusedWithoutLimitingArguments) {
    LogHandle handle = oneOfAKind(0);
    conversionsOf(handle);
    EXPECT_EQ(conversionsOf(handle), (std::vector{0, 0, 0, 0}));
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(LogCall, ConvertsOnlyTheLimitingArgumentsWhenRefused) {
    LogHandle handle = oneOfAKind(2);
    conversionsOf(handle);
    EXPECT_EQ(conversionsOf(handle), (std::vector{1, 1, 0, 0}));
}

TEST_F(LogCall, ConvertsEveryArgumentWhenAllAreLimiting) {
    for (const unsigned limitedBy : {4U, 100U}) {
        LogFacility::clockIs(nullptr);
        LogHandle handle = oneOfAKind(limitedBy);
        conversionsOf(handle);
        EXPECT_EQ(conversionsOf(handle), (std::vector{1, 1, 1, 1})) << limitedBy;
    }
}

TEST_F(LogCall, PresentsTheSameHashForEveryCallWithoutLimitingArguments) {
    LogHandle handle = oneOfAKind(0);
    log(handle, "a", "b", "c", "d");
    log(handle, "1", "2", "3", "4");
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(LogCall, LimitsFailuresThatDifferOnlyInTheFileTogether) {
    LogHandle handle(&logDescriptors[1], Duration(std::chrono::hours(1)), 1.0, 1, 2);
    log(handle, "appraise_data", "missing-hash", "/t/one", "vmt");
    log(handle, "appraise_data", "missing-hash", "/t/two", "vmt");
    EXPECT_EQ(messages.size(), 1U);
    log(handle, "appraise_data", "invalid-hash", "/t/one", "vmt");
    EXPECT_EQ(messages.size(), 2U);
}

TEST_F(LogCall, PresentsTheHashOfTheLimitingArgumentsTogetherWithTheRecords) {
    LogHandle handle = oneOfAKind(2);
    const unsigned hash = hashOf("a", "b");
    EXPECT_TRUE(handle.okToLog(hash)); // a kind of its own
    log(handle, "a", "b", "c", "d");
    EXPECT_EQ(messages.size(), 1U);
    EXPECT_FALSE(handle.okToLog(hash ^ handle.idHash())) << "the call has used it up";
}

TEST_F(LogCall, HandsTheHashOfTheLimitingArgumentsOnWithoutTheRecords) {
    LogHandle handle = oneOfAKind(2);
    log(handle, "a", "b", "c", "d");
    EXPECT_EQ(raisedHash, hashOf("a", "b"));
    log(handle, "1", "2", "3", "4");
    EXPECT_EQ(raisedHash, hashOf("1", "2"));
    EXPECT_NE(raisedHash, hashOf("a", "b"));
    EXPECT_EQ(messages.size(), 2U);
}

TEST_F(LogCall, LimitsRecordsOfTheSameArgumentsApart) {
    LogHandle four = oneOfAKind(1);
    LogHandle warning(&logDescriptors[2], Duration(std::chrono::hours(1)), 1.0, 1, 1);
    log(four, "a", "b", "c", "d");
    log(warning, "a", "b", "c");
    EXPECT_EQ(messages.size(), 2U);
}

TEST_F(LogCall, SharesTheLimitBetweenTheHandlesOfTwoSources) {
    LogFacility::defaultLimitIs({1, Duration(std::chrono::hours(1))});
    LogHandles one;
    LogHandles other;
    log(one.VESTREL_INTEGRITY, "a", "b", "c", "d");
    log(other.VESTREL_INTEGRITY, "a", "b", "c", "d");
    LogFacility::defaultLimitIs({});
    EXPECT_EQ(messages.size(), 1U);
}

} // namespace

} // namespace Vestrel::Tests

void notedLog(Zell::LogHandle* handle, const Zell::LogString& arguments) {
    Vestrel::Tests::raisedHash = arguments.hash;
    handleLog(handle, arguments);
}
