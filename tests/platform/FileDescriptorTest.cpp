// SPDX-License-Identifier: Apache-2.0
// Tests of a descriptor's attributes and of when it is watched.
#include "platform/zell/FileDescriptor.h"

#include "tests/platform/Actors.h"
#include "tests/platform/LoopTest.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace Vestrel::Tests {

namespace {

using Orvo::Ptr;
using Zell::FileDescriptor;
using Zell::NotificationInterface;

class FileDescriptorTest : public LoopTest {
protected:
    FileDescriptorTest() { owner->hasNotificationActiveIs(true); }

    // A readable descriptor on the pipe with the owner as its active subscriber.
    void watch() {
        descriptor = Zell::readableDescriptor("pipe", pipe.reader());
        descriptor->publisher().subscriberIs(owner->listener, false);
    }

    std::size_t reports() const { return owner->listener.readableReports(); }

    // Watched or not, as far as the loop reports what is there to be read.
    void expectReports(std::size_t expected) {
        loop->dispatch();
        EXPECT_EQ(reports(), expected);
    }

    Pipe pipe;
    Ptr<Actor> owner = Orvo::makeNode<Actor>();
    Ptr<FileDescriptor> descriptor = Orvo::makeNode<FileDescriptor>("pipe");
};

TEST_F(FileDescriptorTest, StartsWithNothingButItsName) {
    EXPECT_EQ(descriptor->name(), Orvo::String("pipe"));
    EXPECT_EQ(descriptor->descriptor(), FileDescriptor::noDescriptor);
    EXPECT_FALSE(descriptor->nonBlocking());
    EXPECT_FALSE(descriptor->notifyOnReadable());
    EXPECT_EQ(descriptor->notificationInterface(), NotificationInterface::none);
    EXPECT_EQ(descriptor->readableNotification(), 0);
}

TEST_F(FileDescriptorTest, BuildsReadableDescriptorsReadyToBeWatched) {
    const auto ready = Zell::readableDescriptor(".ima", pipe.reader());
    EXPECT_EQ(ready->name(), Orvo::String(".ima"));
    EXPECT_EQ(ready->descriptor(), pipe.reader());
    EXPECT_TRUE(ready->nonBlocking());
    EXPECT_TRUE(ready->notifyOnReadable());
    EXPECT_EQ(ready->notificationInterface(), NotificationInterface::readiness);
    EXPECT_EQ(static_cast<int>(ready->notificationInterface()), 1);
    EXPECT_EQ(ready->refCount(), 1U);
    EXPECT_TRUE(pipe.nonBlocking());
}

TEST_F(FileDescriptorTest, IsMadeNonBlockingWhicheverIsKnownFirst) {
    descriptor->descriptorIs(pipe.reader());
    EXPECT_FALSE(pipe.nonBlocking());
    descriptor->nonBlockingIs(true);
    EXPECT_TRUE(pipe.nonBlocking());

    const Pipe other;
    descriptor->descriptorIs(other.reader());
    EXPECT_TRUE(other.nonBlocking());
    EXPECT_TRUE(traces.empty());
}

TEST_F(FileDescriptorTest, LeavesANumberBlockingUnlessAsked) {
    descriptor->nonBlockingIs(false);
    descriptor->descriptorIs(pipe.reader());
    EXPECT_FALSE(pipe.nonBlocking());
}

TEST_F(FileDescriptorTest, TracesThatANumberCannotBeMadeNonBlocking) {
    descriptor->nonBlockingIs(true);
    descriptor->descriptorIs(1 << 20);
    EXPECT_EQ(traces, std::vector<std::string>{
                          "nonBlockingApply: fcntl: Bad file descriptor, descriptor pipe"});
}

TEST_F(FileDescriptorTest, PublishesEachAttributeThatIsSet) {
    descriptor->publisher().subscriberIs(owner->listener, false);
    descriptor->nonBlockingIs(true);
    descriptor->notificationInterfaceIs(NotificationInterface::readiness);
    descriptor->notifyOnReadableIs(true);
    descriptor->descriptorIs(pipe.reader());
    const std::vector<Listener::Heard> expected{
        {0x100, false, true},
        {0x101, std::int64_t{0}, std::int64_t{1}},
        {0x102, false, true},
        {0x104, std::int64_t{-1}, std::int64_t{pipe.reader()}},
    };
    EXPECT_EQ(owner->listener.heard, expected);
}

TEST_F(FileDescriptorTest, PublishesReadabilityAsField0x103WithItsCount) {
    watch();
    owner->listener.reaction = [&] { pipe.drain(); };
    pipe.write();
    loop->dispatch();
    pipe.write();
    loop->dispatch();
    const std::vector<Listener::Heard> expected{{0x103, std::int64_t{0}, std::int64_t{1}},
                                                {0x103, std::int64_t{1}, std::int64_t{2}}};
    EXPECT_EQ(owner->listener.heard, expected);
    EXPECT_EQ(descriptor->readableNotification(), 2);
}

TEST_F(FileDescriptorTest, IsWatchedOnlyOnceTheManagerUsesEpoll) {
    auto& config = Zell::ActivityFacility::activityManagerConfig();
    config.useEpollIs(false);
    EXPECT_FALSE(config.useEpoll());
    watch();
    pipe.write();
    expectReports(0);
    config.useEpollIs(true);
    EXPECT_TRUE(config.useEpoll());
    expectReports(1);
}

TEST_F(FileDescriptorTest, IsNotWatchedAnyMoreOnceTheManagerStopsUsingEpoll) {
    watch();
    Zell::ActivityFacility::activityManagerConfig().useEpollIs(false);
    pipe.write();
    expectReports(0);
}

TEST_F(FileDescriptorTest, IsWatchedOnlyWhileASubscribersNotificationsAreOn) {
    owner->hasNotificationActiveIs(false);
    watch();
    pipe.write();
    expectReports(0);
    owner->hasNotificationActiveIs(true);
    expectReports(1);
    pipe.drain();
    owner->hasNotificationActiveIs(false);
    pipe.write();
    expectReports(1);
    owner->hasNotificationActiveIs(true);
    expectReports(2);
}

// Each attempt to watch what cannot be watched leaves a trace.
TEST_F(FileDescriptorTest, IsNotWatchedAgainWhenAFlagIsSetToWhatItIs) {
    const Zell::OwnedFd file(open("/etc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    descriptor = Zell::readableDescriptor("directory", file.get());
    descriptor->publisher().subscriberIs(owner->listener, false);
    EXPECT_EQ(traces.size(), 1U);
    owner->hasNotificationActiveIs(true);
    owner->zellDoZombieReactors(false);
    EXPECT_EQ(traces.size(), 1U);
    owner->zellDoZombieReactors(true);
    EXPECT_EQ(traces.size(), 2U);
}

TEST_F(FileDescriptorTest, IsWatchedOnlyWhileSomebodySubscribes) {
    descriptor = Zell::readableDescriptor("pipe", pipe.reader());
    pipe.write();
    expectReports(0);
    EXPECT_EQ(loop->refCount(), 1U) << "only what is watched holds the loop";
    descriptor->publisher().subscriberIs(owner->listener, false);
    EXPECT_EQ(loop->refCount(), 2U);
    expectReports(1);
    descriptor->publisher().subscriberDel(owner->listener);
    EXPECT_EQ(loop->refCount(), 1U);
    expectReports(1);
}

TEST_F(FileDescriptorTest, IsNotWatchedWithoutTheReadinessInterface) {
    watch();
    descriptor->notificationInterfaceIs(NotificationInterface::none);
    pipe.write();
    expectReports(0);
    descriptor->notificationInterfaceIs(NotificationInterface::readiness);
    expectReports(1);
}

TEST_F(FileDescriptorTest, IsNotWatchedUnlessItNotifiesWhenReadable) {
    watch();
    descriptor->notifyOnReadableIs(false);
    pipe.write();
    expectReports(0);
    descriptor->notifyOnReadableIs(true);
    expectReports(1);
}

TEST_F(FileDescriptorTest, WatchesTheNumberThatItHoldsNow) {
    watch();
    const Pipe other;
    descriptor->descriptorIs(other.reader());
    pipe.write();
    expectReports(0);
    other.write();
    expectReports(1);
    descriptor->descriptorIs(FileDescriptor::noDescriptor);
    EXPECT_EQ(loop->refCount(), 1U);
}

TEST_F(FileDescriptorTest, TracesThatANumberCannotBeWatched) {
    const Zell::OwnedFd file(open("/etc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    descriptor = Zell::readableDescriptor("directory", file.get());
    descriptor->publisher().subscriberIs(owner->listener, false);
    EXPECT_EQ(traces, std::vector<std::string>{
                          "watchIs: sd_event_add_io: Operation not permitted, descriptor "
                          "directory"});
    EXPECT_EQ(loop->refCount(), 1U);
}

TEST_F(FileDescriptorTest, NeverClosesItsNumber) {
    watch();
    descriptor = nullptr;
    pipe.write();
    pipe.drain();
    EXPECT_TRUE(traces.empty());
}

TEST_F(FileDescriptorTest, LeavesNoFailureWhenTheNumberIsClosedAfterNotificationsWereSwitchedOff) {
    watch();
    pipe.write();
    expectReports(1);
    owner->hasNotificationActiveIs(false);
    pipe.closeReader();
    descriptor->publisher().subscriberDel(owner->listener);
    descriptor = nullptr;
    loop->dispatch();
    EXPECT_TRUE(traces.empty());
}

TEST_F(FileDescriptorTest, StaysUnwatchedWhenItsOwnerDies) {
    watch();
    owner->zellDoZombieReactors(true);
    owner = nullptr;
    EXPECT_EQ(loop->refCount(), 1U);
    EXPECT_FALSE(descriptor->publisher().hasActiveSubscriber());
}

} // namespace

} // namespace Vestrel::Tests
