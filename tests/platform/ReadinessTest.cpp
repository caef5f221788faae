// SPDX-License-Identifier: Apache-2.0
// Tests of how the loop reports readable descriptors to the reactors of their owners.
#include "tests/platform/Accounts.h"
#include "tests/platform/Actors.h"
#include "tests/platform/LoopTest.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>

namespace Vestrel::Tests {

namespace {

using Orvo::Duration;
using Orvo::Ptr;
using Zell::FileDescriptor;

// A pipe that is watched for an owner, who reads it empty at each report.
struct Watched {
    explicit Watched(const char* name) {
        owner->hasNotificationActiveIs(true);
        descriptor = Zell::readableDescriptor(name, pipe.reader());
        owner->listener.reaction = [this] { pipe.drain(); };
        descriptor->publisher().subscriberIs(owner->listener, false);
    }

    std::size_t reports() const { return owner->listener.readableReports(); }

    Pipe pipe;
    bool ownerGone = false;
    Ptr<Actor> owner = Orvo::makeNode<Actor>(&ownerGone);
    Ptr<FileDescriptor> descriptor;
};

class Readiness : public LoopTest {
protected:
    Watched one{"one"};
    Watched two{"two"};
};

TEST_F(Readiness, IsReportedOncePerArrival) {
    loop->dispatch();
    EXPECT_EQ(one.reports(), 0U);
    one.pipe.write("several bytes");
    one.pipe.write("in two writes");
    loop->dispatch();
    EXPECT_EQ(one.reports(), 1U);
    loop->dispatch();
    EXPECT_EQ(one.reports(), 1U);
    one.pipe.write();
    loop->dispatch();
    EXPECT_EQ(one.reports(), 2U);
    EXPECT_EQ(two.reports(), 0U);
}

TEST_F(Readiness, OfSeveralIsReportedInOneDispatch) {
    one.pipe.write();
    two.pipe.write();
    loop->dispatch();
    EXPECT_EQ(one.reports(), 1U);
    EXPECT_EQ(two.reports(), 1U);
}

TEST_F(Readiness, CausedByAReactorIsReportedInTheSameDispatch) {
    one.owner->listener.reaction = [&] {
        one.pipe.drain();
        two.pipe.write();
    };
    one.pipe.write();
    loop->dispatch();
    EXPECT_EQ(two.reports(), 1U);
}

TEST_F(Readiness, FromBeforeTheWatchIsReported) {
    Watched three("three");
    three.owner->hasNotificationActiveIs(false);
    three.pipe.write();
    loop->dispatch();
    EXPECT_EQ(three.reports(), 0U);
    three.owner->hasNotificationActiveIs(true);
    loop->dispatch();
    EXPECT_EQ(three.reports(), 1U);
}

TEST_F(Readiness, LeftUnreadIsReportedAgainAfterASecond) {
    using Clock = std::chrono::steady_clock;
    one.owner->listener.reaction = nullptr;
    const Clock::time_point start = Clock::now();
    one.pipe.write();
    loop->dispatch();
    loop->dispatch();
    EXPECT_EQ(one.reports(), 1U) << "it does not spin";
    ASSERT_TRUE(dispatchUntil([&] { return one.reports() == 2; }));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(999));
    loop->dispatch();
    EXPECT_EQ(one.reports(), 2U);
    one.owner->listener.reaction = [&] { one.pipe.drain(); };
    ASSERT_TRUE(dispatchUntil([&] { return one.reports() == 3; }));
    one.pipe.write();
    loop->dispatch();
    EXPECT_EQ(one.reports(), 4U);
}

TEST_F(Readiness, LeftUnreadIsReportedAtOnceWhenMoreArrives) {
    one.owner->listener.reaction = nullptr;
    one.pipe.write();
    loop->dispatch();
    one.pipe.write();
    loop->dispatch();
    EXPECT_EQ(one.reports(), 2U);
}

TEST_F(Readiness, IsNotReportedAgainOnceItsOwnersNotificationsAreOff) {
    one.owner->listener.reaction = nullptr;
    one.pipe.write();
    loop->dispatch();
    one.owner->hasNotificationActiveIs(false);
    bool later = false;
    loop->afterIs(Duration(std::chrono::milliseconds(1100)), [&] { later = true; });
    ASSERT_TRUE(dispatchUntil([&] { return later; }));
    EXPECT_EQ(one.reports(), 1U);
}

TEST_F(Readiness, ReachesAHostThatPollsWithALoopOfItsOwn) {
    loop->dispatch();
    EXPECT_FALSE(readable(loop->pollFd()));
    one.pipe.write();
    EXPECT_TRUE(readable(loop->pollFd()));
    loop->dispatch();
    EXPECT_EQ(one.reports(), 1U);
    EXPECT_FALSE(readable(loop->pollFd()));
}

TEST_F(Readiness, LetsAReactorDropTheLastReferenceOfItsDescriptor) {
    one.owner->listener.reaction = [&] { one.descriptor = nullptr; };
    one.pipe.write();
    two.pipe.write();
    loop->dispatch();
    one.pipe.write();
    loop->dispatch();
    EXPECT_EQ(one.reports(), 1U);
    EXPECT_EQ(two.reports(), 1U);
}

TEST_F(Readiness, LetsAReactorDropTheLastReferenceOfItsOwner) {
    bool goneInside = true;
    one.owner->listener.reaction = [&] {
        one.owner = nullptr;
        goneInside = one.ownerGone;
    };
    one.pipe.write();
    loop->dispatch();
    EXPECT_FALSE(goneInside);
    EXPECT_TRUE(one.ownerGone);
    EXPECT_FALSE(one.descriptor->publisher().hasActiveSubscriber());
    one.pipe.write();
    loop->dispatch();
    EXPECT_EQ(one.descriptor->readableNotification(), 1);
}

TEST_F(Readiness, IsNotReportedToWhoUnsubscribedAfterItWasMarked) {
    const auto dropOther = [&](Watched& mine, Watched& other) {
        mine.owner->listener.reaction = [&] {
            mine.pipe.drain();
            other.descriptor = nullptr;
        };
    };
    dropOther(one, two);
    dropOther(two, one);
    one.pipe.write();
    two.pipe.write();
    loop->dispatch();
    EXPECT_EQ(one.reports() + two.reports(), 1U);
}

TEST_F(Readiness, LeavesDispatchWithTheExceptionOfAReactor) {
    one.owner->listener.reaction = [&] {
        one.pipe.drain();
        throw std::runtime_error("reactor");
    };
    one.pipe.write();
    two.pipe.write();
    EXPECT_THROW(loop->dispatch(), std::runtime_error);
    loop->dispatch();
    EXPECT_EQ(one.reports(), 1U);
    EXPECT_EQ(two.reports(), 1U) << "the others come with the next dispatch";
}

TEST_F(Readiness, LeftUnreadByAReactorThatThrowsIsReportedAgain) {
    one.owner->listener.reaction = [&] { throw std::runtime_error("reactor"); };
    one.pipe.write();
    EXPECT_THROW(loop->dispatch(), std::runtime_error);
    one.owner->listener.reaction = [&] { one.pipe.drain(); };
    EXPECT_TRUE(dispatchUntil([&] { return one.reports() == 2; }));
}

TEST_F(Readiness, HoldsTheLoopUntilTheLastWatchEnds) {
    Zell::ActivityManager* const raw = loop.get();
    loop = nullptr;
    EXPECT_EQ(Zell::ActivityFacility::activityManagerIfAny().get(), raw);
    one.descriptor = nullptr;
    EXPECT_EQ(Zell::ActivityFacility::activityManagerIfAny().get(), raw);
    two.descriptor = nullptr;
    EXPECT_EQ(Zell::ActivityFacility::activityManagerIfAny(), nullptr);
}

TEST_F(Readiness, LetsAReactorEndTheLoop) {
    two.descriptor = nullptr;
    Zell::ActivityManager* const raw = loop.get();
    loop = nullptr;
    one.owner->listener.reaction = [&] { one.descriptor = nullptr; };
    one.pipe.write();
    raw->dispatch();
    EXPECT_EQ(one.reports(), 1U);
    EXPECT_EQ(Zell::ActivityFacility::activityManagerIfAny(), nullptr);
}

TEST_F(Readiness, EndsSafelyWhenTheLoopTakesDescriptorsAlong) {
    // The last watch holds the loop, the loop a handler, and the handler the last references of two
    // descriptors.
    Watched three("three");
    two.descriptor->publisher().subscriberDel(two.owner->listener);
    three.descriptor->publisher().subscriberDel(three.owner->listener);
    loop->soonIs([held = one.descriptor, other = three.descriptor] {
        held->notifyOnReadableIs(other->notifyOnReadable());
    });
    one.descriptor = nullptr;
    three.descriptor = nullptr;
    loop = nullptr;
    one.owner->hasNotificationActiveIs(false);
    EXPECT_EQ(Zell::ActivityFacility::activityManagerIfAny(), nullptr);
    EXPECT_EQ(accountOf(FileDescriptor::pelbinName).objects, 1U);
}

} // namespace

} // namespace Vestrel::Tests
