// SPDX-License-Identifier: Apache-2.0
// Tests where the agent's traces and log messages go, and what a line of each looks like.
#include "agent/Sinks.h"

#include "platform/zell/LogFacility.h"
#include "platform/zell/LogHandle.h"
#include "platform/zell/LogString.h"
#include "platform/zell/OwnedFd.h"
#include "platform/zell/StderrLines.h"
#include "platform/zell/TraceHandle.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

namespace Vestrel::Tests {

namespace {

constexpr const char* journalSocket = "/run/systemd/journal/socket";

const Zell::LogDescriptor record{"TEST_MESSAGE", "%s is not %s.", "", "", Zell::severityWarning, 0};

// Receives what is sent to the journal.
class Journal {
public:
    Journal() {
        std::filesystem::create_directories("/run/systemd/journal");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string(journalSocket).copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
    }

    ~Journal() { std::filesystem::remove_all("/run/systemd"); }

    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // The next entry; empty when there is none.
    std::string entry() const {
        std::array<char, 8192> buffer{};
        const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        return {buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
    }

private:
    Zell::OwnedFd socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

class Sinks : public testing::Test {
protected:
    ~Sinks() override {
        Zell::traceSinkIs(nullptr);
        Zell::traceLevelIs(1);
        Zell::LogFacility::sinkIs(nullptr);
    }

    static void raise(const char* first, const char* second) {
        Zell::LogHandle handle(&record, Orvo::Duration(), 1.0, 0, 0);
        Zell::LogString arguments;
        arguments.argumentCount = 2;
        arguments.strIs(0, first);
        arguments.strIs(1, second);
        handle.log(arguments);
    }

    // What one message and nothing else puts on stderr.
    static std::string stderrOf(LogTarget target) {
        sinksAre({1, target});
        testing::internal::CaptureStderr();
        raise("this", "that");
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(Sinks, PutALogMessageOnStderrAsNameAndText) {
    EXPECT_EQ(stderrOf(LogTarget::standardError), "TEST_MESSAGE: this is not that.\n");
}

TEST_F(Sinks, KeepALogMessageOnOneLine) {
    sinksAre({1, LogTarget::standardError});
    testing::internal::CaptureStderr();
    raise("a\nFORGED: b", "\x1b[31m");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "TEST_MESSAGE: a\\x0aFORGED: b is not \\x1b[31m.\n");
}

TEST_F(Sinks, SendALogMessageToTheJournalWithItsFields) {
    const Journal journal;
    EXPECT_EQ(stderrOf(LogTarget::journal), "");
    const std::string entry = journal.entry();
    for (const char* const field :
         {"MESSAGE=TEST_MESSAGE: this is not that.\n", "PRIORITY=4\n", "LOG_NAME=TEST_MESSAGE\n",
          "LOG_ARG_1=this\n", "LOG_ARG_2=that\n", "MESSAGE_ID="}) {
        EXPECT_NE(entry.find(field), std::string::npos) << field << " in " << entry;
    }
}

TEST_F(Sinks, ChooseTheJournalWhereItRuns) {
    const Journal journal;
    EXPECT_EQ(stderrOf(LogTarget::automatic), "");
    EXPECT_NE(journal.entry().find("TEST_MESSAGE"), std::string::npos);
}

TEST_F(Sinks, ChooseStderrWhereNobodyElseListens) {
    if (access("/dev/log", F_OK) == 0) {
        GTEST_SKIP() << "something listens at /dev/log";
    }
    EXPECT_EQ(stderrOf(LogTarget::automatic), "TEST_MESSAGE: this is not that.\n");
}

TEST_F(Sinks, SendALogMessageToSyslogOnlyWhenToldSo) {
    if (access("/dev/log", F_OK) == 0) {
        GTEST_SKIP() << "the message would reach this host's log";
    }
    const Journal journal;
    EXPECT_EQ(stderrOf(LogTarget::syslog), "");
    EXPECT_EQ(journal.entry(), "");
}

TEST_F(Sinks, WriteATraceAsHandleLevelAndTextOnOneLine) {
    sinksAre({5, LogTarget::standardError});
    testing::internal::CaptureStderr();
    Zell::traceLineIs({"IntegrityKeyringSm", 5, "getKey: 17, .ima"});
    Zell::traceLineIs({"IntegrityKeyringSm", 1, "getKey: a\nb"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "IntegrityKeyringSm 5 getKey: 17, .ima\n"
                                                      "IntegrityKeyringSm 1 getKey: a\\x0ab\n");
}

TEST_F(Sinks, WriteATraceAtOnceBehindTheMessagesThatWait) {
    sinksAre({1, LogTarget::standardError});
    const auto written = [] {
        const std::string text = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return text;
    };
    testing::internal::CaptureStderr();
    {
        const Zell::StderrLines::Together handler;
        raise("this", "that");
        EXPECT_EQ(written(), "");
        Zell::traceLineIs({"IntegrityKeyringSm", 1, "getKey: failed"});
        EXPECT_EQ(written(), "TEST_MESSAGE: this is not that.\n"
                             "IntegrityKeyringSm 1 getKey: failed\n");
        raise("one", "other");
        EXPECT_EQ(written(), "");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "TEST_MESSAGE: one is not other.\n");
}

TEST_F(Sinks, SetTheLevelOfEveryHandle) {
    Zell::TraceHandle& present = Zell::TraceHandle::traceHandleIs("Present");
    sinksAre({3, LogTarget::standardError});
    EXPECT_TRUE(present.enabled(3));
    EXPECT_FALSE(present.enabled(4));
    EXPECT_EQ(Zell::TraceHandle::traceHandleIs("Future").level(), 3);
}

} // namespace

} // namespace Vestrel::Tests
