// SPDX-License-Identifier: Apache-2.0
// Tests of the event loop itself: timers, signals, its end, its descriptors, the watchdog.
#include "platform/zell/ActivityManager.h"

#include "platform/zell/OwnedFd.h"
#include "tests/platform/Actors.h"
#include "tests/platform/LoopTest.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Vestrel::Tests {

namespace {

using namespace std::chrono_literals;
using Orvo::Duration;
using Zell::ActivityFacility;

class ActivityManagerTest : public LoopTest {};

TEST_F(ActivityManagerTest, IsTheOneOfTheProcessWhileSomebodyHoldsIt) {
    EXPECT_EQ(ActivityFacility::activityManager(), loop);
    EXPECT_EQ(ActivityFacility::activityManagerIfAny(), loop);
    loop = nullptr;
    EXPECT_EQ(ActivityFacility::activityManagerIfAny(), nullptr);
    loop = ActivityFacility::activityManager();
    EXPECT_NE(loop, nullptr);
}

TEST_F(ActivityManagerTest, ReturnsFromDispatchWithoutWaiting) {
    bool late = false;
    loop->afterIs(Duration(1h), [&] { late = true; });
    loop->dispatch();
    EXPECT_FALSE(late);
}

TEST_F(ActivityManagerTest, RunsAHandlerOnceWhenTheDelayHasPassed) {
    const auto start = std::chrono::steady_clock::now();
    int runs = 0;
    loop->afterIs(Duration(20ms), [&] { ++runs; });
    ASSERT_TRUE(dispatchUntil([&] { return runs != 0; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 19ms);
    loop->dispatch();
    EXPECT_EQ(runs, 1);
}

TEST_F(ActivityManagerTest, RunsHandlersInTheOrderOfTheirTimes) {
    std::string order;
    loop->afterIs(Duration(40ms), [&] { order += 'b'; });
    loop->afterIs(Duration(5ms), [&] { order += 'a'; });
    ASSERT_TRUE(dispatchUntil([&] { return order.size() == 2; }));
    EXPECT_EQ(order, "ab");
}

TEST_F(ActivityManagerTest, RunsSoonOutsideOfTheHandlerThatAsked) {
    bool inside = false;
    bool ran = false;
    loop->soonIs([&] {
        inside = true;
        loop->soonIs([&] {
            EXPECT_FALSE(inside);
            ran = true;
        });
        inside = false;
    });
    EXPECT_FALSE(ran);
    loop->dispatch();
    EXPECT_TRUE(ran);
}

TEST_F(ActivityManagerTest, ForgetsHandlersWhenItGoes) {
    const auto held = std::make_shared<int>(0);
    loop->afterIs(Duration(1h), [held] { ++*held; });
    EXPECT_EQ(held.use_count(), 2);
    loop = nullptr;
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(*held, 0);
}

TEST_F(ActivityManagerTest, ForgetsAHandlerThatHasRun) {
    const auto held = std::make_shared<int>(0);
    loop->soonIs([held] { ++*held; });
    loop->dispatch();
    EXPECT_EQ(*held, 1);
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ActivityManagerTest, LetsAHandlerDropItsLastReference) {
    Zell::ActivityManager* const raw = loop.get();
    int runs = 0;
    loop->soonIs([&] {
        ++runs;
        loop = nullptr;
        EXPECT_EQ(ActivityFacility::activityManagerIfAny().get(), raw);
    });
    raw->dispatch();
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(ActivityFacility::activityManagerIfAny(), nullptr);
}

TEST_F(ActivityManagerTest, LeavesDispatchWithTheExceptionOfAHandler) {
    bool second = false;
    loop->soonIs([] { throw std::runtime_error("handler"); });
    loop->afterIs(Duration(1ms), [&] { second = true; });
    EXPECT_THROW(dispatchUntil([] { return false; }), std::runtime_error);
    EXPECT_TRUE(dispatchUntil([&] { return second; }));
}

TEST_F(ActivityManagerTest, RunsUntilToldToExitWithAStatus) {
    int runs = 0;
    loop->afterIs(Duration(1ms), [&] {
        ++runs;
        loop->afterIs(Duration(1ms), [&] {
            ++runs;
            loop->exitIs(7);
        });
    });
    EXPECT_EQ(loop->run(), 7);
    EXPECT_EQ(runs, 2);
}

TEST_F(ActivityManagerTest, RunReportsReadableDescriptors) {
    const auto owner = Orvo::makeNode<Actor>();
    owner->hasNotificationActiveIs(true);
    const Pipe pipe;
    const auto descriptor = Zell::readableDescriptor("pipe", pipe.reader());
    descriptor->publisher().subscriberIs(owner->listener, false);
    owner->listener.reaction = [&] { loop->exitIs(0); };
    pipe.write();
    EXPECT_EQ(loop->run(), 0);
    EXPECT_EQ(owner->listener.readableReports(), 1U);
}

TEST_F(ActivityManagerTest, LeavesRunWithTheExceptionOfAHandler) {
    loop->soonIs([] { throw std::runtime_error("handler"); });
    EXPECT_THROW(loop->run(), std::runtime_error);
    loop->soonIs([&] { loop->exitIs(1); });
    EXPECT_EQ(loop->run(), 1);
}

TEST_F(ActivityManagerTest, LeavesRunAtOnceWhenToldToExitBefore) {
    loop->exitIs(3);
    EXPECT_EQ(loop->run(), 3);
    EXPECT_EQ(loop->run(), 3);
}

TEST_F(ActivityManagerTest, StaysQuietInDispatchOnceToldToExit) {
    loop->soonIs([&] { loop->exitIs(3); });
    EXPECT_NO_THROW(loop->dispatch());
    EXPECT_NO_THROW(loop->dispatch());
    EXPECT_EQ(loop->run(), 3);
}

TEST_F(ActivityManagerTest, RunsTheHandlerOfASignalEachTimeItArrives) {
    sigset_t before;
    sigset_t now;
    pthread_sigmask(SIG_BLOCK, nullptr, &before);
    int arrived = 0;
    loop->signalIs(SIGUSR1, [&] { ++arrived; });
    pthread_sigmask(SIG_BLOCK, nullptr, &now);
    EXPECT_EQ(sigismember(&now, SIGUSR1), 1);
    loop->dispatch();
    EXPECT_EQ(arrived, 0);
    raise(SIGUSR1);
    EXPECT_TRUE(dispatchUntil([&] { return arrived == 1; }));
    raise(SIGUSR1);
    EXPECT_TRUE(dispatchUntil([&] { return arrived == 2; }));
    loop = nullptr;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(ActivityManagerTest, ThrowsWhenTheKernelRefuses) {
    EXPECT_THROW(loop->signalIs(12345, [] {}), std::system_error);
}

TEST_F(ActivityManagerTest, ClosesItsOwnDescriptorsWhenItsLastUserGoes) {
    loop = nullptr;
    const auto before = openDescriptors();
    {
        const auto owner = Orvo::makeNode<Actor>();
        owner->hasNotificationActiveIs(true);
        Pipe pipe;
        const auto descriptor = Zell::readableDescriptor("pipe", pipe.reader());
        descriptor->publisher().subscriberIs(owner->listener, false);
        pipe.write();
        loop = ActivityFacility::activityManager();
        loop->afterIs(Duration(1h), [] {});
        loop->dispatch();
        EXPECT_EQ(owner->listener.readableReports(), 1U);
        EXPECT_NE(openDescriptors(), before);
        loop = nullptr;
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ActivityManagerTest, OpensItsDescriptorsCloseOnExec) {
    EXPECT_NE(fcntl(loop->pollFd(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(ActivityManagerTest, FeedsNoWatchdogUnlessTheServiceManagerAsks) {
    unsetenv("WATCHDOG_USEC");
    EXPECT_FALSE(loop->watchdogIs(true));
}

TEST_F(ActivityManagerTest, FeedsTheWatchdogOfTheServiceManager) {
    constexpr const char* path = "/run/notify";
    const Zell::OwnedFd manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path);
    ASSERT_EQ(bind(manager.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    setenv("NOTIFY_SOCKET", path, 1);
    setenv("WATCHDOG_USEC", "40000", 1);

    const auto fed = [&] {
        std::array<char, 100> text{};
        const ssize_t length = recv(manager.get(), text.data(), text.size(), 0);
        return length > 0 &&
               std::string(text.data(), static_cast<std::size_t>(length)) == "WATCHDOG=1";
    };
    EXPECT_TRUE(loop->watchdogIs(true));
    EXPECT_TRUE(fed()) << "at once";
    EXPECT_TRUE(dispatchUntil(fed)) << "from the loop";
    EXPECT_FALSE(loop->watchdogIs(false));

    unsetenv("WATCHDOG_USEC");
    unsetenv("NOTIFY_SOCKET");
    unlink(path);
}

} // namespace

} // namespace Vestrel::Tests
