// SPDX-License-Identifier: Apache-2.0
// Tests of the places that log messages go to, with sockets in the place of journal and syslog.
#include "platform/zell/LogSinks.h"

#include "platform/zell/OwnedFd.h"
#include "tests/platform/LogTest.h"

#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>

namespace Vestrel::Tests {

namespace {

using namespace std::string_literals;
using Orvo::String;
using Zell::LogMessage;

constexpr const char* journalSocket = "/run/systemd/journal/socket";

// A datagram socket that receives what the code under test sends to a path.
class Receiver {
public:
    explicit Receiver(const char* path)
        : path_(path), socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        std::filesystem::create_directories(path_.parent_path());
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path);
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
    }

    ~Receiver() { std::filesystem::remove(path_); }

    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    std::optional<std::string> datagram() const {
        std::string buffer(65536, '\0');
        const ssize_t length = recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (length < 0) {
            return std::nullopt;
        }
        buffer.resize(static_cast<std::size_t>(length));
        return buffer;
    }

private:
    std::filesystem::path path_;
    Zell::OwnedFd socket_;
};

// A /dev of the test's own, so that it decides whether anything listens for syslog.
class PrivateDev {
public:
    PrivateDev() {
        closelog();
        EXPECT_EQ(mount("tmpfs", "/dev", "tmpfs", MS_NOSUID, "mode=0755"), 0);
    }

    ~PrivateDev() {
        closelog();
        EXPECT_EQ(umount2("/dev", MNT_DETACH), 0);
    }

    PrivateDev(const PrivateDev&) = delete;
    PrivateDev& operator=(const PrivateDev&) = delete;
};

// "NAME=text\n", or "NAME\n", eight bytes of length and the bytes.
std::multimap<std::string, std::string> fieldsOf(std::string_view entry) {
    std::multimap<std::string, std::string> fields;
    while (!entry.empty()) {
        const std::size_t end = entry.find('\n');
        const std::string_view line = entry.substr(0, end);
        entry.remove_prefix(line.size() + 1);
        if (const std::size_t equals = line.find('='); equals != std::string_view::npos) {
            fields.emplace(line.substr(0, equals), line.substr(equals + 1));
        } else {
            std::uint64_t length = 0; // little endian
            for (std::size_t i = 8; i-- > 0;) {
                length = length << 8U | static_cast<unsigned char>(entry[i]);
            }
            fields.emplace(line, entry.substr(8, length));
            entry.remove_prefix(8 + length + 1);
        }
    }
    return fields;
}

class LogSinks : public testing::Test {
protected:
    const std::array<String, 2> arguments{String("/etc/keys/ima/a.der"), String("two\nlines")};
    const LogMessage message{firstRecord, arguments,
                             "FIRST: file /etc/keys/ima/a.der, two\nlines\n"};
    const std::string line = "FIRST: file /etc/keys/ima/a.der, two\\x0alines";
};

TEST_F(LogSinks, WriteOneLineOfNameAndText) {
    EXPECT_EQ(Zell::logLine(message), line);
    const std::string odd = "SECOND: \x01\x1f \x7f\xc3\xa4\t"s + std::string(1, '\0') + "end\n";
    EXPECT_EQ(Zell::logLine({secondRecord, {}, odd}),
              "SECOND: \\x01\\x1f \\x7f\xc3\xa4\\x09\\x00end");
}

TEST_F(LogSinks, IdentifyARecordByTheSameDigitsForEver) {
    EXPECT_EQ(Zell::messageId(""), "6c62272e07bb014262b821756295c58d");
    EXPECT_EQ(Zell::messageId("a"), "d228cb696f1a8caf78912b704e4a8964");
    EXPECT_EQ(Zell::messageId("foobar"), "343e1662793c64bf6f0d3597ba446f18");
    EXPECT_NE(Zell::messageId("FIRST"), Zell::messageId("SECOND"));
}

TEST_F(LogSinks, SendTheFieldsOfAMessageToTheJournal) {
    const Receiver journal(journalSocket);
    Zell::journalSink()(message);
    const auto entry = journal.datagram();
    ASSERT_TRUE(entry);
    auto fields = fieldsOf(*entry);
    EXPECT_EQ(fields.erase("SYSLOG_IDENTIFIER"), 1U); // the library's own addition
    const std::multimap<std::string, std::string> expected{
        {"MESSAGE", line},
        {"MESSAGE_ID", Zell::messageId("FIRST")},
        {"PRIORITY", "4"},
        {"LOG_NAME", "FIRST"},
        {"LOG_ARG_1", "/etc/keys/ima/a.der"},
        {"LOG_ARG_2", "two\nlines"},
    };
    EXPECT_EQ(fields, expected);
    EXPECT_FALSE(journal.datagram());
}

TEST_F(LogSinks, SendTheSeverityToSyslog) {
    const PrivateDev dev;
    const Receiver syslogd("/dev/log");
    Zell::syslogSink()(message);
    const auto sent = syslogd.datagram();
    ASSERT_TRUE(sent);
    EXPECT_TRUE(sent->starts_with("<28>")) << *sent; // daemon, warning
    EXPECT_TRUE(sent->ends_with(": " + line)) << *sent;
}

TEST_F(LogSinks, WriteALineToStderr) {
    testing::internal::CaptureStderr();
    Zell::stderrSink()(message);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + "\n");
    testing::internal::CaptureStderr();
    Zell::stderrSink()({secondRecord, {}, "SECOND: as it is\n"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "SECOND: as it is\n");
}

TEST_F(LogSinks, PreferTheJournalWhereItRuns) {
    const PrivateDev dev;
    const Receiver syslogd("/dev/log");
    const Receiver journal(journalSocket);
    Zell::automaticSink()(message);
    EXPECT_TRUE(journal.datagram());
    Zell::journalOrSyslogSink()(message);
    EXPECT_TRUE(journal.datagram());
    EXPECT_FALSE(syslogd.datagram());
}

TEST_F(LogSinks, FallBackToSyslogWithoutAJournal) {
    const PrivateDev dev;
    const Receiver syslogd("/dev/log");
    Zell::automaticSink()(message);
    EXPECT_TRUE(syslogd.datagram());
    Zell::journalOrSyslogSink()(message);
    EXPECT_TRUE(syslogd.datagram());
}

TEST_F(LogSinks, FallBackToStderrWhereNothingListens) {
    testing::internal::CaptureStderr();
    {
        const PrivateDev dev;
        Zell::automaticSink()(message);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + "\n");
}

TEST_F(LogSinks, DecideAnewForEachMessage) {
    const PrivateDev dev;
    const Receiver syslogd("/dev/log");
    const Zell::LogSink sink = Zell::automaticSink();
    sink(message);
    EXPECT_TRUE(syslogd.datagram());
    {
        const Receiver journal(journalSocket);
        sink(message);
        EXPECT_TRUE(journal.datagram());
    }
    sink(message);
    EXPECT_TRUE(syslogd.datagram());
}

TEST_F(LogSinks, AreTheJournalOrSyslogUnlessTheHostNamesAnother) {
    const Receiver journal(journalSocket);
    Zell::LogHandle handle(&firstRecord, {}, 1.0, 0, 0);
    handle.log({});
    const auto entry = journal.datagram();
    ASSERT_TRUE(entry);
    EXPECT_EQ(fieldsOf(*entry).count("LOG_NAME"), 1U);
}

} // namespace

} // namespace Vestrel::Tests
