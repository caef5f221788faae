// SPDX-License-Identifier: Apache-2.0
// Tests of the descriptor attribute and of the reactor that it wakes.
#include "platform/zell/TraceHandle.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/syslog/SyslogTest.h"

#include <fcntl.h>

namespace Vestrel::Tests {

namespace {

class SyslogDescriptor : public SyslogTest {
protected:
    SyslogDescriptor() { start(); }

    using Descriptor = Orvo::Ptr<Zell::FileDescriptor>;

    static void publishReadable(const Descriptor& descriptor) {
        descriptor->publisher().publish(0x103, std::int64_t{0}, std::int64_t{1});
    }

    bool reacts(const Descriptor& descriptor) {
        clear();
        publishReadable(descriptor);
        return drains() == 1;
    }
};

using SyslogReactor = SyslogDescriptor;

TEST_F(SyslogDescriptor, IsMadeUnderTheNameAndStored) {
    const Descriptor made = sm->fileDescriptorIs("another");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->name(), "another");
    EXPECT_EQ(sm->fileDescriptor(), made);
    EXPECT_EQ(made->descriptor(), Zell::FileDescriptor::noDescriptor);
    EXPECT_EQ(made->refCount(), 2U);
}

TEST_F(SyslogDescriptor, RunsTheHandlerOnceWhenItIsMade) {
    ASSERT_TRUE(send(realLine));
    sm->fileDescriptorIs("another");
    EXPECT_EQ(drains(), 1);
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(SyslogDescriptor, TakesTheReactorFromTheOneBefore) {
    const Descriptor before = sm->fileDescriptor();
    const Descriptor after = sm->fileDescriptorIs("another");
    EXPECT_EQ(before->refCount(), 1U);
    EXPECT_FALSE(reacts(before));
    EXPECT_TRUE(reacts(after));
}

TEST_F(SyslogDescriptor, IsNotClosedWhenItIsReplacedOrDeleted) {
    sm->fileDescriptorIs("another");
    sm->fileDescriptorDel();
    EXPECT_EQ(calls.callsOf({"close"}), Texts{});
    EXPECT_NE(fcntl(sm->socketFd(), F_GETFD), -1);
}

TEST_F(SyslogDescriptor, IsDetachedAndReturnedWhenItIsDeleted) {
    const Descriptor before = sm->fileDescriptor();
    EXPECT_EQ(sm->fileDescriptorDel(), before);
    EXPECT_EQ(drains(), 1) << "the handler runs once more";
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_EQ(before->refCount(), 1U);
    EXPECT_FALSE(reacts(before));
}

TEST_F(SyslogDescriptor, IsNullWhenThereIsNoneToDelete) {
    sm->fileDescriptorDel();
    clear();
    EXPECT_EQ(sm->fileDescriptorDel(), nullptr);
    EXPECT_EQ(traces, Texts{});
}

TEST_F(SyslogDescriptor, WakesTheHandlerAgainWhenItIsMadeAnew) {
    const int number = sm->fileDescriptorDel()->descriptor();
    const Descriptor made = sm->fileDescriptorIs("IntegrityKernelSyslog");
    made->nonBlockingIs(true);
    made->notificationInterfaceIs(Zell::NotificationInterface::readiness);
    made->notifyOnReadableIs(true);
    made->descriptorIs(number);
    clear();
    ASSERT_TRUE(send(realLine));
    dispatch();
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(SyslogDescriptor, MayBeMadeFromItsOwnName) {
    const Descriptor made = sm->fileDescriptorIs(sm->fileDescriptor()->name());
    EXPECT_EQ(made->name(), "IntegrityKernelSyslog");
}

TEST_F(SyslogReactor, ReactsToReadinessOnly) {
    const Descriptor descriptor = sm->fileDescriptor();
    for (const Orvo::FieldId field : {0x0U, 0x3U, 0x100U, 0x101U, 0x102U, 0x104U, 0x203U}) {
        descriptor->publisher().publish(field, std::int64_t{0}, std::int64_t{1});
    }
    EXPECT_EQ(traces, Texts{});
    EXPECT_TRUE(reacts(descriptor));
}

TEST_F(SyslogReactor, ReactsToNothingWhileNotificationsAreOff) {
    sm->hasNotificationActiveIs(false);
    EXPECT_FALSE(reacts(sm->fileDescriptor()));
    sm->hasNotificationActiveIs(true);
    EXPECT_TRUE(reacts(sm->fileDescriptor()));
}

TEST_F(SyslogReactor, FollowsADescriptorFromOneToAnother) {
    IntegritySyslogSm::on_fileDescriptor reactor(*sm);
    const auto first = Orvo::makeNode<Zell::FileDescriptor>("a");
    const auto second = Orvo::makeNode<Zell::FileDescriptor>("b");
    reactor.on_selfPublisher(sm.get(), nullptr, first);
    EXPECT_TRUE(first->publisher().subscribed(reactor));
    reactor.on_selfPublisher(sm.get(), first, second);
    EXPECT_FALSE(first->publisher().subscribed(reactor));
    EXPECT_TRUE(second->publisher().subscribed(reactor));
    reactor.on_shutdown(sm.get(), nullptr);
    EXPECT_TRUE(second->publisher().subscribed(reactor));
    reactor.on_shutdown(sm.get(), second);
    EXPECT_FALSE(second->publisher().subscribed(reactor));
}

TEST_F(SyslogReactor, RunsTheHandlerWhenEitherPointerIsSet) {
    IntegritySyslogSm::on_fileDescriptor reactor(*sm);
    const Descriptor set = sm->fileDescriptor();
    reactor.on_self0(sm.get(), false, "any", nullptr, set);
    EXPECT_EQ(drains(), 1);
    reactor.on_self0(sm.get(), true, "any", set, nullptr);
    EXPECT_EQ(drains(), 2);
    reactor.on_self0(sm.get(), false, "any", nullptr, nullptr);
    EXPECT_EQ(drains(), 2);
}

TEST_F(SyslogReactor, DoesNothingForAStateMachineThatIsGoing) {
    IntegritySyslogSm* const going = sm.get();
    const Descriptor descriptor = sm->fileDescriptor();
    bool wasDying = false;
    Zell::traceSinkIs([&](const Zell::TraceLine& line) {
        traces.push_back(std::to_string(line.level) + " " + std::string(line.text));
        if (line.text == "handleDelete: ") {
            wasDying = going->refCount() == 0;
            publishReadable(descriptor);
            going->fileDescriptorIs("another");
        }
    });
    stop();
    EXPECT_TRUE(wasDying);
    EXPECT_EQ(traces, Texts{"5 handleDelete: "});
}

} // namespace

} // namespace Vestrel::Tests
