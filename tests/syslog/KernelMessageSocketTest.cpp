// SPDX-License-Identifier: Apache-2.0
// Tests of the socket's life: opened, drained, closed, and every failure on the way.
#include "platform/zell/FileDescriptor.h"
#include "platform/zell/TraceHandle.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/syslog/SyslogTest.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

class KernelMessageSocket : public SyslogTest {
protected:
    Texts socketCalls() const {
        return calls.callsOf({"socket", "unlink", "bind", "read", "close"});
    }

    Texts failures() const {
        Texts found;
        std::ranges::copy_if(traces, std::back_inserter(found),
                             [](const std::string& line) { return line.starts_with("1 "); });
        return found;
    }

    // Runs one drain and returns what was raised, by the cause of each line.
    void drain() {
        clear();
        sm->handleLog();
    }

    static std::string lineWithCause(std::string_view cause) {
        std::string line(realLine);
        return line.replace(line.find("missing-hash"), 12, cause);
    }

    std::string message(std::string_view cause) const {
        return integrityMessage(cause, "/t/nohash", "vmt");
    }
};

const std::string unlinkCall = "unlink "s + IntegritySyslogSm::socketPath;

TEST_F(KernelMessageSocket, StandsAtItsPath) {
    EXPECT_STREQ(IntegritySyslogSm::socketPath, "/var/run/IMAKernelMessages");
    EXPECT_EQ(IntegritySyslogSm::bufferReadSize, 8192U);
    start();
    EXPECT_TRUE(fs::is_socket(path));
}

TEST_F(KernelMessageSocket, IsOpenedByTheseCallsInThisOrder) {
    start(true);
    EXPECT_EQ(socketCalls(),
              (Texts{"socket 1 0x802 0", unlinkCall, onSocket("bind", " "s + path + " 110"),
                     onSocket("read", " 8192")}));
}

TEST_F(KernelMessageSocket, IsADatagramSocketThatDoesNotBlock) {
    start();
    int type = 0;
    socklen_t size = sizeof type;
    ASSERT_EQ(getsockopt(sm->socketFd(), SOL_SOCKET, SO_TYPE, &type, &size), 0);
    EXPECT_EQ(type, SOCK_DGRAM);
    EXPECT_TRUE(fcntl(sm->socketFd(), F_GETFL) & O_NONBLOCK);
}

TEST_F(KernelMessageSocket, IsBoundToTheZeroFilledAddress) {
    start();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string(path).copy(address.sun_path, sizeof address.sun_path);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&address);
    EXPECT_EQ(calls.boundAddress(), std::vector(bytes, bytes + sizeof address));
}

TEST_F(KernelMessageSocket, HasTheModeThatTheUmaskLeaves) {
    const mode_t before = umask(0177);
    start();
    umask(before);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(KernelMessageSocket, TracesItsOpening) {
    start(true);
    EXPECT_EQ(traces, (Texts{"5 handleInitialized: ",
                             "5 handleInitialized: Socket opened " +
                                 std::to_string(sm->socketFd()) + " path " + path,
                             "5 handleLog: "}));
}

TEST_F(KernelMessageSocket, SwitchesTheEventLoopToEpoll) {
    EXPECT_FALSE(Zell::ActivityFacility::activityManagerConfig().useEpoll());
    calls.failNext("socket", EMFILE);
    start();
    EXPECT_TRUE(Zell::ActivityFacility::activityManagerConfig().useEpoll());
}

TEST_F(KernelMessageSocket, HasADescriptorThatIsReadyToWakeTheHandler) {
    start();
    const auto& descriptor = sm->fileDescriptor();
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->name(), "IntegrityKernelSyslog");
    EXPECT_TRUE(descriptor->nonBlocking());
    EXPECT_EQ(descriptor->notificationInterface(), Zell::NotificationInterface::readiness);
    EXPECT_TRUE(descriptor->notifyOnReadable());
    EXPECT_EQ(descriptor->descriptor(), sm->socketFd());
    EXPECT_EQ(descriptor->refCount(), 1U);
}

TEST_F(KernelMessageSocket, TakesThePlaceOfAStaleSocket) {
    start();
    const int stale = dup(sm->socketFd());
    calls.failNext("unlink", EPERM); // as if the process had been killed
    stop();
    ASSERT_TRUE(fs::is_socket(path));
    start(true);
    EXPECT_EQ(failures(), Texts{});
    ASSERT_TRUE(send(realLine));
    dispatch();
    EXPECT_EQ(messages, Texts{message("missing-hash")});
    close(stale);
}

TEST_F(KernelMessageSocket, TakesThePlaceOfAStaleFile) {
    std::ofstream(path) << "left over";
    start(true);
    EXPECT_EQ(failures(), Texts{});
    EXPECT_TRUE(fs::is_socket(path));
}

TEST_F(KernelMessageSocket, TakesThePlaceOfADanglingLink) {
    fs::create_symlink("/run/nowhere", path);
    start(true);
    EXPECT_EQ(failures(), Texts{});
    EXPECT_TRUE(fs::is_socket(fs::symlink_status(path)));
}

TEST_F(KernelMessageSocket, IsNotThereWhenTheSystemRefusesASocket) {
    calls.failNext("socket", EMFILE);
    start(true);
    EXPECT_EQ(traces, (Texts{"5 handleInitialized: ",
                             "1 handleInitialized: socket: "s + strerror(EMFILE)}));
    EXPECT_EQ(socketCalls(), Texts{"socket 1 0x802 0"});
    EXPECT_EQ(sm->socketFd(), 0);
    EXPECT_FALSE(sm->fileDescriptor());
}

TEST_F(KernelMessageSocket, IsClosedWhenBindIsRefused) {
    const Texts before = openDescriptors();
    calls.failNext("bind", EADDRINUSE);
    start(true);
    EXPECT_EQ(traces, (Texts{"5 handleInitialized: ",
                             "1 handleInitialized: bind: "s + strerror(EADDRINUSE)}));
    ASSERT_EQ(socketCalls().size(), 4U);
    const std::string number = socketCalls()[2].substr(5, socketCalls()[2].find(' ', 5) - 5);
    EXPECT_EQ(socketCalls(), (Texts{"socket 1 0x802 0", unlinkCall,
                                    "bind " + number + " " + path + " 110", "close " + number}));
    EXPECT_EQ(sm->socketFd(), 0);
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(KernelMessageSocket, TellsTheCauseOfBindNotThatOfTheClose) {
    calls.failNext("bind", EADDRINUSE);
    calls.failNext("close", EIO);
    start(true);
    EXPECT_EQ(failures(), Texts{"1 handleInitialized: bind: "s + strerror(EADDRINUSE)});
    EXPECT_EQ(calls.pending(), 0U);
}

TEST_F(KernelMessageSocket, IsClosedWhenADirectoryOccupiesThePath) {
    fs::create_directory(path);
    start(true);
    EXPECT_EQ(failures(), Texts{"1 handleInitialized: bind: "s + strerror(EADDRINUSE)});
    EXPECT_EQ(sm->socketFd(), 0);
    EXPECT_FALSE(sm->fileDescriptor());
    stop();
    EXPECT_TRUE(fs::is_directory(path)) << "not ours";
}

TEST_F(KernelMessageSocket, IsClosedWhenTheDirectoryOfThePathIsMissing) {
    calls.redirect(path, "/run/missing/socket");
    start(true);
    EXPECT_EQ(failures(), Texts{"1 handleInitialized: bind: "s + strerror(ENOENT)});
    EXPECT_EQ(sm->socketFd(), 0);
}

TEST_F(KernelMessageSocket, IsBoundWhateverUnlinkSays) {
    calls.failNext("unlink", EACCES);
    start(true);
    EXPECT_EQ(failures(), Texts{});
    EXPECT_NE(sm->socketFd(), 0);
}

TEST_F(KernelMessageSocket, IsNotRetriedWithoutASocket) {
    calls.failNext("socket", EMFILE);
    start();
    dispatch();
    drain();
    EXPECT_EQ(traces, Texts{"5 handleLog: "});
    EXPECT_EQ(socketCalls(), Texts{});
    EXPECT_FALSE(send(realLine));
}

TEST_F(KernelMessageSocket, IsReadUntilItIsEmpty) {
    start();
    ASSERT_TRUE(send(lineWithCause("first")));
    ASSERT_TRUE(send(lineWithCause("second")));
    drain();
    EXPECT_EQ(messages, (Texts{message("first"), message("second")}));
    const std::string read = onSocket("read", " 8192");
    EXPECT_EQ(socketCalls(), (Texts{read, read, read}));
    EXPECT_EQ(traces, (Texts{"5 handleLog: ", "5 processKernelMsg: ", "5 processKernelMsg: "}));
}

TEST_F(KernelMessageSocket, IsSilentWhenItIsEmpty) {
    start();
    drain();
    EXPECT_EQ(traces, Texts{"5 handleLog: "});
    EXPECT_EQ(socketCalls(), Texts{onSocket("read", " 8192")});
}

TEST_F(KernelMessageSocket, CutsADatagramAtItsFirstNul) {
    start();
    ASSERT_TRUE(send(lineWithCause("cut") + "\0abc"s));
    ASSERT_TRUE(send("abc\0"s + lineWithCause("lost")));
    drain();
    EXPECT_EQ(messages, Texts{message("cut")}) << "what follows the NUL would prevent the match";
    EXPECT_EQ(linesHandled(), 2);
}

TEST_F(KernelMessageSocket, PassesAnEmptyDatagramOnAsAnEmptyLine) {
    start();
    ASSERT_TRUE(send(""));
    ASSERT_TRUE(send(lineWithCause("next")));
    drain();
    EXPECT_EQ(linesHandled(), 2);
    EXPECT_EQ(messages, Texts{message("next")}) << "an empty datagram does not end the drain";
}

TEST_F(KernelMessageSocket, DoesNotTakeAnEmptyDatagramForTheOneBefore) {
    start();
    ASSERT_TRUE(send(realLine));
    ASSERT_TRUE(send(""));
    ASSERT_TRUE(send(""));
    drain();
    EXPECT_EQ(linesHandled(), 3);
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(KernelMessageSocket, DoesNotSplitADatagramIntoLines) {
    start();
    ASSERT_TRUE(send(lineWithCause("one") + "\n" + lineWithCause("two")));
    drain();
    EXPECT_EQ(linesHandled(), 1);
    EXPECT_EQ(messages, Texts{message("two")});
}

TEST_F(KernelMessageSocket, DoesNotJoinDatagrams) {
    start();
    ASSERT_TRUE(send(realHead));
    ASSERT_TRUE(send("missing-hash " + std::string(realTail)));
    drain();
    EXPECT_EQ(linesHandled(), 2);
    EXPECT_EQ(messages, Texts{});
}

// The cause of a line that fills up to that size.
std::string longLine(std::size_t size) {
    const std::size_t others = realHead.size() + 1 + realTail.size();
    return std::string(realHead) + std::string(size - others, 'x') + " " + std::string(realTail);
}

TEST_F(KernelMessageSocket, TakesADatagramOfTheWholeBuffer) {
    start();
    ASSERT_TRUE(send(longLine(8192)));
    drain();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_NE(messages[0].find(std::string(7000, 'x')), std::string::npos);
}

TEST_F(KernelMessageSocket, CutsALongerDatagramAtTheBuffersSize) {
    start();
    ASSERT_TRUE(send(longLine(8192) + "9"));
    ASSERT_TRUE(send(longLine(8192) + " and what would prevent a match"));
    ASSERT_TRUE(send(longLine(8193)));
    drain();
    EXPECT_EQ(linesHandled(), 3);
    ASSERT_EQ(messages.size(), 2U) << "the last one loses the digit of its errno";
    EXPECT_EQ(messages[0], messages[1]);
}

TEST_F(KernelMessageSocket, LeavesNothingOfALongDatagramToTheNext) {
    start();
    ASSERT_TRUE(send(longLine(8192)));
    ASSERT_TRUE(send(lineWithCause("short"))); // nothing may follow its errno
    drain();
    EXPECT_EQ(linesHandled(), 2);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[1], message("short"));
}

TEST_F(KernelMessageSocket, EndsTheDrainAtAReadErrorAndGoesOnAtTheNext) {
    start();
    ASSERT_TRUE(send(lineWithCause("first")));
    ASSERT_TRUE(send(lineWithCause("second")));
    clear();
    calls.failNth("read", 2, EIO);
    sm->handleLog();
    EXPECT_EQ(
        traces,
        (Texts{"5 handleLog: ", "5 processKernelMsg: ", "1 handleLog: read: "s + strerror(EIO)}));
    EXPECT_EQ(messages, Texts{message("first")});
    drain();
    EXPECT_EQ(messages, Texts{message("second")});
    EXPECT_EQ(failures(), Texts{});
}

TEST_F(KernelMessageSocket, TakesAnInterruptedReadForAnError) {
    start();
    calls.failNext("read", EINTR);
    drain();
    EXPECT_EQ(failures(), Texts{"1 handleLog: read: "s + strerror(EINTR)});
    EXPECT_EQ(socketCalls().size(), 1U);
}

TEST_F(KernelMessageSocket, WakesTheHandlerThroughTheEventLoop) {
    start();
    dispatch();
    clear();
    ASSERT_TRUE(send(lineWithCause("first")));
    ASSERT_TRUE(send(lineWithCause("second")));
    dispatch();
    EXPECT_EQ(messages, (Texts{message("first"), message("second")}));
    EXPECT_EQ(drains(), 1);
    clear();
    ASSERT_TRUE(send(lineWithCause("third")));
    dispatch();
    EXPECT_EQ(messages, Texts{message("third")});
}

TEST_F(KernelMessageSocket, KeepsLinesForTheHandlerWhileNotificationsAreOff) {
    start();
    sm->hasNotificationActiveIs(false);
    ASSERT_TRUE(send(realLine));
    dispatch();
    EXPECT_EQ(drains(), 0);
    sm->hasNotificationActiveIs(true);
    dispatch();
    EXPECT_EQ(messages, Texts{message("missing-hash")});
}

TEST_F(KernelMessageSocket, IsClosedAndThenUnlinkedAtTheEnd) {
    start();
    const std::string closed = onSocket("close");
    stop();
    EXPECT_EQ(socketCalls(), (Texts{closed, unlinkCall}));
    EXPECT_EQ(traces, Texts{"5 handleDelete: "});
    EXPECT_FALSE(fs::exists(fs::symlink_status(path)));
}

TEST_F(KernelMessageSocket, IsTakenDownAfterTheTraceOfIt) {
    start();
    bool wasThere = false;
    Zell::traceSinkIs([&](const Zell::TraceLine& line) {
        wasThere = line.text == "handleDelete: " && socketCalls().empty() && fs::exists(path);
    });
    stop();
    EXPECT_TRUE(wasThere);
}

TEST_F(KernelMessageSocket, IsOnlyUnlinkedAtTheEndWithoutASocket) {
    calls.failNext("socket", EMFILE);
    start();
    std::ofstream(path) << "anything";
    stop();
    EXPECT_EQ(socketCalls(), Texts{unlinkCall});
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(KernelMessageSocket, KeepsItsNumberAfterItWasClosed) {
    start();
    const int number = sm->socketFd();
    sm->handleDelete();
    EXPECT_EQ(sm->socketFd(), number);
    EXPECT_EQ(fcntl(number, F_GETFD), -1);
    calls.failNext("close", EBADF); // the destructor closes it again: let it hit nothing else
    stop();
}

TEST_F(KernelMessageSocket, IsNoLongerWatchedWhenItIsClosed) {
    start();
    const auto descriptor = sm->fileDescriptor();
    stop();
    EXPECT_FALSE(descriptor->publisher().hasActiveSubscriber());
    EXPECT_EQ(descriptor->refCount(), 1U);
    EXPECT_EQ(failures(), Texts{});
    dispatch();
    EXPECT_EQ(drains(), 0);
}

TEST_F(KernelMessageSocket, IsThereAgainForTheNextStateMachine) {
    for (int i = 0; i < 3; ++i) {
        start();
        ASSERT_TRUE(send(realLine));
        dispatch();
        EXPECT_EQ(messages.size(), 1U);
        stop();
        EXPECT_FALSE(send(realLine));
    }
}

} // namespace

} // namespace Vestrel::Tests
