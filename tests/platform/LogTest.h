// SPDX-License-Identifier: Apache-2.0
// What tests of the log facility share: a clock that stands still, and what was raised.
#pragma once

#include "platform/zell/LogFacility.h"
#include "platform/zell/LogHandle.h"
#include "platform/zell/LogSinks.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace Vestrel::Tests {

// A record of which only the name counts.
constexpr Zell::LogDescriptor record(const char* name, const char* format = "%s %s") {
    return {name, format, "", Zell::noActionIsRequired, Zell::severityWarning, 0};
}

inline constexpr Zell::LogDescriptor firstRecord = record("FIRST");
inline constexpr Zell::LogDescriptor secondRecord = record("SECOND");

class LogTest : public testing::Test {
protected:
    LogTest() {
        Zell::LogFacility::clockIs([this] { return now; });
        Zell::LogFacility::defaultLimitIs({});
        Zell::LogFacility::sinkIs([this](const Zell::LogMessage& message) {
            EXPECT_TRUE(message.line.ends_with('\n'));
            messages.push_back(Zell::logLine(message));
        });
    }

    void TearDown() override {
        Zell::LogFacility::clockIs(nullptr);
        Zell::LogFacility::defaultLimitIs({});
        Zell::LogFacility::sinkIs(Zell::journalOrSyslogSink());
    }

    static Zell::LogHandle handle(const Zell::LogDescriptor& descriptor,
                                  std::chrono::nanoseconds interval = {}, unsigned burst = 0,
                                  double backoff = 1.0) {
        return {&descriptor, Orvo::Duration(interval), backoff, burst, 0};
    }

    // How many of the tries are allowed.
    static int allowed(Zell::LogHandle& handle, int tries, unsigned hash = 0) {
        int passed = 0;
        for (int i = 0; i < tries; ++i) {
            passed += handle.okToLog(hash ^ handle.idHash()) ? 1 : 0;
        }
        return passed;
    }

    std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
    std::vector<std::string> messages;
};

using Messages = std::vector<std::string>;

} // namespace Vestrel::Tests
