// SPDX-License-Identifier: Apache-2.0
// Checks the system-call hooks: what they record, what they answer, and what they let through.
#include "tests/fakes/SystemCalls.h"

#include "tests/fakes/KeyService.h"
#include "tests/fakes/Probe.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace Vestrel::Tests {
namespace {

using Texts = std::vector<std::string>;

constexpr int notificationPipe = O_EXCL;

std::string readText(int descriptor, std::size_t size = 64) {
    std::string text(size, '\0');
    const ssize_t bytes = Probe::read(descriptor, text.data(), text.size());
    if (bytes < 0) {
        return "errno " + std::to_string(errno);
    }
    text.resize(static_cast<std::size_t>(bytes));
    return text;
}

TEST(SystemCalls, LetEverythingThroughWhenNoneAreInstalled) {
    TempDir dir;
    const int descriptor = Probe::inotifyInit1(IN_NONBLOCK);
    ASSERT_GE(descriptor, 0);
    EXPECT_GT(Probe::inotifyAddWatch(descriptor, dir.path().c_str(), IN_CLOSE_WRITE), 0);
    EXPECT_EQ(readText(descriptor), "errno " + std::to_string(EAGAIN));
    dir.write("file", "text");
    EXPECT_EQ(readText(descriptor).size(), sizeof(inotify_event) + 16);
    EXPECT_EQ(Probe::close(descriptor), 0);
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
    EXPECT_EQ(Probe::unlink(dir.path("file").c_str()), 0);
    EXPECT_FALSE(dir.has("file"));
}

TEST(SystemCalls, RecordEachCallWithItsArguments) {
    KeyService keys;
    TempDir dir;
    SystemCalls calls;
    std::array<int, 2> ends{};
    ASSERT_EQ(Probe::pipe2(ends, notificationPipe), 0);
    ASSERT_EQ(Probe::setQueueSize(ends[1], 256), 0);
    const int watch = Probe::inotifyInit1(IN_NONBLOCK);
    const int watchId = Probe::inotifyAddWatch(watch, dir.path().c_str(), 0x2c8);
    readText(watch, 16);
    EXPECT_EQ(Probe::inotifyRmWatch(watch, watchId), 0);
    const int socket = Probe::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    const std::string path = dir.path("socket");
    EXPECT_EQ(Probe::bind(socket, path.c_str()), 0);
    EXPECT_EQ(Probe::unlink(path.c_str()), 0);
    for (const int descriptor : {ends[0], ends[1], watch, socket}) {
        Probe::close(descriptor);
    }
    const auto number = [](int descriptor) { return std::to_string(descriptor); };
    EXPECT_EQ(
        calls.calls(),
        (Texts{"pipe2 0x80", "ioctl " + number(ends[1]) + " 0x5760 256", "inotify_init1 0x800",
               "inotify_add_watch " + number(watch) + " " + dir.path() + " 0x2c8",
               "read " + number(watch) + " 16",
               "inotify_rm_watch " + number(watch) + " " + number(watchId), "socket 1 0x802 0",
               "bind " + number(socket) + " " + path + " 110", "unlink " + path,
               "close " + number(ends[0]), "close " + number(ends[1]), "close " + number(watch),
               "close " + number(socket)}));
    EXPECT_EQ(calls.callsOf({"pipe2", "socket"}), (Texts{"pipe2 0x80", "socket 1 0x802 0"}));
    EXPECT_EQ(calls.boundAddress().size(), 110U);
}

TEST(SystemCalls, RecordNothingWhilePaused) {
    SystemCalls calls;
    calls.pause();
    Probe::close(-1);
    calls.resume();
    Probe::close(-2);
    EXPECT_EQ(calls.calls(), Texts{"close -2"});
}

TEST(SystemCalls, FailTheChosenCallOfAName) {
    SystemCalls calls;
    calls.failNth("inotify_init1", 2, EMFILE);
    const int first = Probe::inotifyInit1(0);
    EXPECT_GE(first, 0);
    EXPECT_EQ(Probe::inotifyInit1(0), -1);
    EXPECT_EQ(errno, EMFILE);
    const int third = Probe::inotifyInit1(0);
    EXPECT_GE(third, 0);
    EXPECT_EQ(calls.pending(), 0U);
    Probe::close(first);
    Probe::close(third);
}

TEST(SystemCalls, FailEveryCallThatCanBeScripted) {
    KeyService keys;
    TempDir dir;
    SystemCalls calls;
    for (const char* name : {"pipe2", "ioctl", "inotify_init1", "inotify_add_watch",
                             "inotify_rm_watch", "read", "close", "socket", "bind", "unlink"}) {
        calls.failNext(name, EDOM);
    }
    const std::string file = dir.write("file", "");
    const auto expectFailed = [](long result) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(errno, EDOM);
        errno = 0;
    };
    std::array<int, 2> ends{};
    expectFailed(Probe::pipe2(ends, notificationPipe));
    expectFailed(Probe::setQueueSize(-1, 1));
    expectFailed(Probe::inotifyInit1(0));
    expectFailed(Probe::inotifyAddWatch(-1, "/", 1));
    expectFailed(Probe::inotifyRmWatch(-1, 1));
    expectFailed(Probe::read(-1, ends.data(), 1));
    expectFailed(Probe::close(-1));
    expectFailed(Probe::socket(AF_UNIX, SOCK_DGRAM, 0));
    expectFailed(Probe::bind(-1, "/x"));
    expectFailed(Probe::unlink(file.c_str()));
    EXPECT_TRUE(dir.has("file"));
    EXPECT_EQ(calls.pending(), 0U);
    EXPECT_EQ(keys.openQueues(), 0U);
}

TEST(SystemCalls, ReleaseADescriptorEvenWhenItsCloseIsAnswered) {
    SystemCalls calls;
    std::array<int, 2> ends{};
    ASSERT_EQ(Probe::pipe2(ends, O_CLOEXEC), 0);
    calls.failNext("close", EIO);
    EXPECT_EQ(Probe::close(ends[0]), -1);
    EXPECT_EQ(errno, EIO);
    calls.answerNext("close", 1, EINTR);
    EXPECT_EQ(Probe::close(ends[1]), 1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(::fcntl(ends[0], F_GETFD), -1);
    EXPECT_EQ(::fcntl(ends[1], F_GETFD), -1);
}

TEST(SystemCalls, FeedADescriptorsReadsBeforeItsOwnContent) {
    SystemCalls calls;
    std::array<int, 2> ends{};
    ASSERT_EQ(Probe::pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(::write(ends[1], "real", 4), 4);
    calls.feedRead(ends[0], "fed");
    calls.feedRead(ends[0], "too long");
    calls.feedReadError(ends[0], EINTR);
    calls.feedReadEnd(ends[0]);
    EXPECT_EQ(calls.pending(), 4U);
    EXPECT_EQ(readText(ends[0]), "fed");
    EXPECT_EQ(readText(ends[0], 3), "too");
    EXPECT_EQ(readText(ends[0]), "errno " + std::to_string(EINTR));
    EXPECT_EQ(readText(ends[0]), "");
    EXPECT_EQ(readText(ends[0]), "real");
    EXPECT_EQ(calls.pending(), 0U);
    Probe::close(ends[0]);
    Probe::close(ends[1]);
}

TEST(SystemCalls, FeedTheReadsOfANotificationPipeToo) {
    KeyService keys;
    SystemCalls calls;
    std::array<int, 2> ends{};
    ASSERT_EQ(Probe::pipe2(ends, notificationPipe | O_NONBLOCK), 0);
    calls.feedReadError(ends[0], EIO);
    EXPECT_EQ(readText(ends[0], 16), "errno " + std::to_string(EIO));
    EXPECT_EQ(readText(ends[0], 16), "errno " + std::to_string(EAGAIN));
    Probe::close(ends[0]);
    Probe::close(ends[1]);
}

TEST(SystemCalls, RedirectASocketsPath) {
    TempDir dir;
    SystemCalls calls;
    calls.redirect("/nowhere/at/all", dir.path("socket"));
    const int socket = Probe::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(Probe::bind(socket, "/nowhere/at/all"), 0);
    EXPECT_TRUE(dir.has("socket"));
    EXPECT_EQ(Probe::unlink("/nowhere/at/all"), 0);
    EXPECT_FALSE(dir.has("socket"));
    EXPECT_EQ(calls.callsOf({"bind", "unlink"}),
              (Texts{"bind " + std::to_string(socket) + " /nowhere/at/all 110",
                     "unlink /nowhere/at/all"}));
    Probe::close(socket);
}

TEST(SystemCalls, LeaveErrnoAloneWhenACallSucceeds) {
    KeyService keys;
    SystemCalls calls;
    std::array<int, 2> ends{};
    errno = EDOM;
    ASSERT_EQ(Probe::pipe2(ends, notificationPipe), 0);
    ASSERT_EQ(Probe::setQueueSize(ends[1], 32), 0);
    ASSERT_EQ(Probe::close(ends[0]), 0);
    ASSERT_EQ(Probe::close(ends[1]), 0);
    EXPECT_EQ(errno, EDOM);
}

} // namespace
} // namespace Vestrel::Tests
