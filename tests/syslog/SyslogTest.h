// SPDX-License-Identifier: Apache-2.0
// What tests of the syslog state machine share: a log daemon, the system calls, the traces and the
// log messages.
#pragma once

#include "platform/orvo/Ptr.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogFacility.h"
#include "platform/zell/OwnedFd.h"
#include "syslog/IntegritySyslogSm.h"
#include "tests/fakes/SystemCalls.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

using Texts = std::vector<std::string>;

// The numbers that are open in this process, in order.
Texts openDescriptors();

// The text that the state machine raises for a failed appraisal.
std::string integrityMessage(std::string_view cause, std::string_view file,
                             std::string_view command);

// Each test starts without a state machine and without the socket's file; traces are on at level 5
// and the clock of the log facility stands still. Where the log daemon sends to is always there,
// under /run, which each test program has for itself.
class SyslogTest : public testing::Test {
protected:
    SyslogTest();
    ~SyslogTest() override;

    // Creates the state machine and forgets the traces and calls of the start-up unless `keep`.
    void start(bool keep = false);

    // Drops the state machine.
    void stop() { sm = nullptr; }

    // One datagram from the log daemon; false when the system refuses it.
    bool send(std::string_view datagram) const;

    // Runs the event loop until nothing is ready.
    void dispatch() { loop->dispatch(); }

    // How often the handlers were entered since the last clear().
    std::ptrdiff_t drains() const;
    std::ptrdiff_t linesHandled() const;

    // A recorded call on the socket, such as onSocket("close") or onSocket("read", " 8192").
    std::string onSocket(const std::string& call, const std::string& rest = "") const;

    void clear(); // traces, log messages, recorded calls

    static constexpr const char* path = IntegritySyslogSm::socketPath;

    SystemCalls calls;
    Texts traces;   // "LEVEL TEXT", such as "5 handleLog: "
    Texts messages; // "NAME: TEXT"
    std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
    Orvo::Ptr<Zell::ActivityManager> loop = Zell::ActivityFacility::activityManager();
    Orvo::Ptr<IntegritySyslogSm> sm;

private:
    Zell::OwnedFd daemon_;
};

} // namespace Vestrel::Tests
