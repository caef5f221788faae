// SPDX-License-Identifier: Apache-2.0
// Lets each call of the syslog state machine fail at each of its turns and with several causes.
#include "tests/syslog/SyslogTest.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace Vestrel::Tests {

namespace {

const std::string record =
    "kernel: [    2.647055][   T10] audit: type=1800 audit(1795226825.572:11): pid=115 uid=0 "
    "auid=4294967295 ses=4294967295 op=appraise_data cause=missing-hash comm=\"tool\" "
    "name=\"/usr/bin/tool\" dev=\"rootfs\" ino=392 res=0 errno=0";

const std::string message = integrityMessage("missing-hash", "/usr/bin/tool", "tool");

constexpr int errors[] = {EACCES, EMFILE, ENFILE, ENOMEM, ENOSPC, EROFS, EINTR, EADDRINUSE};

class SyslogFault : public SyslogTest {
protected:
    SyslogFault() {
        start(); // what is made once for the process
        end();
        numbers_ = openDescriptors();
    }

    void end() {
        stop();
        clear();
    }

    void endWithNothingLeft() {
        stop();
        EXPECT_EQ(openDescriptors(), numbers_);
        EXPECT_EQ(calls.pending(), 0U) << "the failure has struck";
        EXPECT_FALSE(std::filesystem::exists(path));
        clear();
    }

    static std::string cause(int error) { return std::strerror(error); }

private:
    Texts numbers_;
};

TEST_F(SyslogFault, OfTheSocketIsTracedAndTheStateMachineLivesOn) {
    for (const int error : errors) {
        calls.failNext("socket", error);
        start(true);
        EXPECT_EQ(traces,
                  (Texts{"5 handleInitialized: ", "1 handleInitialized: socket: " + cause(error)}));
        EXPECT_EQ(sm->socketFd(), 0);
        EXPECT_FALSE(sm->fileDescriptor());
        EXPECT_TRUE(sm->hasNotificationActive());
        EXPECT_EQ(calls.callsOf({"unlink", "bind", "close"}), Texts{});
        endWithNothingLeft();
    }
}

TEST_F(SyslogFault, OfBindIsTracedAndTheSocketClosed) {
    for (const int error : errors) {
        calls.failNext("bind", error);
        start(true);
        EXPECT_EQ(traces,
                  (Texts{"5 handleInitialized: ", "1 handleInitialized: bind: " + cause(error)}));
        EXPECT_EQ(sm->socketFd(), 0);
        EXPECT_FALSE(sm->fileDescriptor());
        EXPECT_EQ(calls.callsOf({"close"}).size(), 1U);
        endWithNothingLeft();
    }
}

TEST_F(SyslogFault, OfUnlinkAtTheStartChangesNothing) {
    for (const int error : errors) {
        calls.failNext("unlink", error);
        start(true);
        EXPECT_NE(sm->socketFd(), 0);
        EXPECT_EQ(traces, (Texts{"5 handleInitialized: ",
                                 "5 handleInitialized: Socket opened " +
                                     std::to_string(sm->socketFd()) + " path " + path,
                                 "5 handleLog: "}));
        endWithNothingLeft();
    }
}

TEST_F(SyslogFault, OfUnlinkAndCloseAtTheEndIsSilent) {
    for (const int error : errors) {
        start();
        calls.failNext("close", error);
        calls.failNext("unlink", error);
        stop();
        EXPECT_EQ(traces, Texts{"5 handleDelete: "});
        EXPECT_TRUE(std::filesystem::exists(path)) << "the fake left it";
        std::filesystem::remove(path);
        endWithNothingLeft();
    }
}

TEST_F(SyslogFault, OfAnyReadEndsThatDrainAndLosesNoLine) {
    constexpr std::size_t lines = 3;
    for (std::size_t turn = 1; turn <= lines + 1; ++turn) {
        for (const int error : errors) {
            SCOPED_TRACE("read " + std::to_string(turn) + " " + cause(error));
            start();
            for (std::size_t i = 0; i < lines; ++i) {
                ASSERT_TRUE(send(record));
            }
            calls.failNth("read", turn, error);
            sm->handleLog();
            EXPECT_EQ(traces.back(), "1 handleLog: read: " + cause(error));
            EXPECT_EQ(linesHandled(), static_cast<std::ptrdiff_t>(turn - 1));
            sm->handleLog();
            EXPECT_EQ(linesHandled(), static_cast<std::ptrdiff_t>(lines));
            EXPECT_EQ(traces.back(), turn <= lines ? "5 processKernelMsg: " : "5 handleLog: ");
            endWithNothingLeft();
        }
    }
}

TEST_F(SyslogFault, OfAFullQueueIsTheSendersAndEndsWhenItIsRead) {
    start();
    std::size_t taken = 0;
    while (send(record)) {
        ++taken;
        ASSERT_LT(taken, 100000U) << "the queue never fills";
    }
    EXPECT_EQ(errno, EAGAIN);
    dispatch();
    EXPECT_EQ(linesHandled(), static_cast<std::ptrdiff_t>(taken));
    EXPECT_TRUE(send(record));
    dispatch();
    EXPECT_EQ(linesHandled(), static_cast<std::ptrdiff_t>(taken + 1));
    EXPECT_EQ(messages.front(), message);
    loop = nullptr;
}

} // namespace

} // namespace Vestrel::Tests
