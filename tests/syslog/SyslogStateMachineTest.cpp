// SPDX-License-Identifier: Apache-2.0
// Tests of the syslog state machine's attributes, reflection, factory and traces left behind.
#include "platform/pelbin/Pelbin.h"
#include "platform/zell/Errors.h"
#include "platform/zell/TraceHandle.h"
#include "platform/zell/TypeData.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/syslog/SyslogTest.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace Vestrel::Tests {

namespace {

using namespace std::chrono_literals;
using Orvo::Duration;

class SyslogStateMachine : public SyslogTest {
protected:
    const Zell::TypeData& type() { return *Zell::registeredType("Vestrel::IntegritySyslogSm"); }

    // What the accounts hold, the trace ring's excepted: it is not tracked.
    static Texts alive() {
        Texts lines;
        for (const Pelbin::Account& account : Pelbin::accounts()) {
            if (account.objects != 0) {
                lines.push_back(std::string(account.typeName) + " " +
                                std::to_string(account.objects) + " " +
                                std::to_string(account.bytes));
            }
        }
        std::ranges::sort(lines);
        return lines;
    }
};

TEST_F(SyslogStateMachine, ComesFromTheFactoryWithOneReferenceAndNotificationsOn) {
    start();
    ASSERT_TRUE(sm);
    EXPECT_EQ(sm->refCount(), 1U);
    EXPECT_TRUE(sm->hasNotificationActive());
    EXPECT_FALSE(sm->zombieReactors());
}

TEST_F(SyslogStateMachine, HasNotificationsOffUntilItIsBuilt) {
    const auto bare = Orvo::makeNode<IntegritySyslogSm>();
    EXPECT_FALSE(bare->hasNotificationActive());
    EXPECT_NE(bare->socketFd(), 0) << "the constructor starts up by itself";
}

TEST_F(SyslogStateMachine, StartsWithoutSyslogs) {
    start();
    EXPECT_TRUE(sm->syslogs().empty());
}

TEST_F(SyslogStateMachine, HasNoSocketAndNoDescriptorWhenTheSystemGivesNone) {
    calls.failNext("socket", EMFILE);
    start();
    EXPECT_EQ(sm->socketFd(), 0);
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_TRUE(sm->hasNotificationActive());
}

TEST_F(SyslogStateMachine, KeepsSyslogsByName) {
    start();
    sm->syslogsIs("a", Duration(1s));
    sm->syslogsIs("b", Duration(2s));
    EXPECT_EQ(sm->syslogs().size(), 2U);
    EXPECT_EQ(sm->syslogs().value("a"), Duration(1s));
    EXPECT_EQ(sm->syslogs().value("b"), Duration(2s));
    EXPECT_TRUE(sm->syslogs().value("c").isZero());
}

TEST_F(SyslogStateMachine, ReplacesASyslogOfTheSameName) {
    start();
    sm->syslogsIs("a", Duration(1s));
    sm->syslogsIs("a", Duration(3s));
    EXPECT_EQ(sm->syslogs().size(), 1U);
    EXPECT_EQ(sm->syslogs().value("a"), Duration(3s));
}

TEST_F(SyslogStateMachine, RemovesOneSyslogAndReturnsIt) {
    start();
    sm->syslogsIs("a", Duration(1s));
    sm->syslogsIs("b", Duration(2s));
    EXPECT_EQ(sm->syslogsDel("a"), Duration(1s));
    EXPECT_EQ(sm->syslogs().size(), 1U);
    EXPECT_TRUE(sm->syslogsDel("a").isZero()) << "nothing left to remove";
    EXPECT_EQ(sm->syslogs().size(), 1U);
}

TEST_F(SyslogStateMachine, RemovesAllSyslogs) {
    start();
    sm->syslogsDelAll();
    sm->syslogsIs("a", Duration(1s));
    sm->syslogsIs("b", Duration(2s));
    sm->syslogsDelAll();
    EXPECT_TRUE(sm->syslogs().empty());
}

TEST_F(SyslogStateMachine, DoesNotConsultOrFillSyslogs) {
    start();
    sm->syslogsIs("AUDIT_INTEGRITY_DATA", Duration(1h));
    sm->processKernelMsg(realLine);
    EXPECT_EQ(messages.size(), 1U);
    EXPECT_EQ(sm->syslogs().size(), 1U);
}

TEST_F(SyslogStateMachine, IsRegisteredUnderItsName) {
    start();
    EXPECT_STREQ(sm->typeData().name(), "Vestrel::IntegritySyslogSm");
    EXPECT_EQ(&sm->typeData(), Zell::registeredType("Vestrel::IntegritySyslogSm"));
}

TEST_F(SyslogStateMachine, ExposesItsAttributesInTheirOrder) {
    Texts names;
    for (const Zell::CollectionData& collection : type().collections()) {
        names.emplace_back(collection.name);
    }
    for (const Zell::AttributeData& attribute : type().attributes()) {
        names.emplace_back(attribute.name);
    }
    EXPECT_EQ(names, (Texts{"syslogs", "socketFd", "fileDescriptor"}));
}

TEST_F(SyslogStateMachine, GivesItsAttributesThroughReflection) {
    start();
    EXPECT_EQ(std::get<std::int64_t>(type().value(sm.get(), 0)), sm->socketFd());
    EXPECT_EQ(std::get<Orvo::Ptr<Orvo::Node>>(type().value(sm.get(), 1)).get(),
              sm->fileDescriptor().get());
}

TEST_F(SyslogStateMachine, RefusesToBeWrittenThroughReflection) {
    start();
    const int before = sm->socketFd();
    EXPECT_THROW(type().valueIs(sm.get(), 0, std::int64_t{before + 1}), Zell::AttributeError);
    EXPECT_THROW(type().valueIs(sm.get(), 1, Orvo::Ptr<Orvo::Node>()), Zell::AttributeError);
    EXPECT_EQ(sm->socketFd(), before);
    EXPECT_TRUE(sm->fileDescriptor());
}

TEST_F(SyslogStateMachine, WalksSyslogsInNanoseconds) {
    start();
    sm->syslogsIs("b", Duration(2s));
    sm->syslogsIs("a", Duration(1us));
    Texts members;
    type().collections()[0].forEach(
        sm.get(), [&](const Orvo::String& name, const Orvo::Value& value) {
            members.push_back(std::string(name.view()) + " " +
                              std::to_string(std::get<std::int64_t>(value)));
        });
    EXPECT_EQ(members, (Texts{"b 2000000000", "a 1000"}));
}

TEST_F(SyslogStateMachine, ListsItsOperationsByName) {
    Texts listed(type().operations().begin(), type().operations().end());
    std::ranges::sort(listed);
    EXPECT_EQ(listed, (Texts{"fileDescriptorDel", "fileDescriptorIs", "handleDelete",
                             "handleInitialized", "handleLog", "hasNotificationActiveIs",
                             "processKernelMsg", "syslogsDel", "syslogsDelAll", "syslogsIs"}));
}

TEST_F(SyslogStateMachine, IsConstructedFromNothingThroughReflection) {
    const auto made = std::get<Orvo::Ptr<Orvo::Node>>(type().construct({}));
    const auto* const other = dynamic_cast<IntegritySyslogSm*>(made.get());
    ASSERT_NE(other, nullptr);
    EXPECT_TRUE(other->hasNotificationActive());
    EXPECT_NE(other->socketFd(), 0);
    EXPECT_EQ(made->refCount(), 1U);
}

TEST_F(SyslogStateMachine, RefusesConstructorArguments) {
    const std::array<Orvo::Value, 1> one{std::int64_t{1}};
    try {
        type().construct(one);
        ADD_FAILURE() << "constructed";
    } catch (const Zell::AttributeError& refusal) {
        EXPECT_STREQ(refusal.what(), "Vestrel::IntegritySyslogSm is constructed from nothing");
    }
    EXPECT_EQ(calls.callsOf({"socket"}), Texts{});
}

TEST_F(SyslogStateMachine, LeavesDescriptorsAndBytesAsTheyWere) {
    start(); // opens accounts and whatever stays for the life of the process
    stop();
    const Texts numbers = openDescriptors();
    const Texts before = alive();
    start();
    EXPECT_NE(alive(), before);
    EXPECT_NE(openDescriptors(), numbers);
    sm->syslogsIs("a", Duration(1s));
    ASSERT_TRUE(send(realLine));
    ASSERT_TRUE(send("kernel: nothing"));
    dispatch();
    EXPECT_EQ(messages.size(), 1U);
    stop();
    EXPECT_EQ(openDescriptors(), numbers);
    EXPECT_EQ(alive(), before);
}

TEST_F(SyslogStateMachine, LeavesDescriptorsAndBytesAsTheyWereAfterEveryFailure) {
    start();
    stop();
    const Texts numbers = openDescriptors();
    const Texts before = alive();
    for (const char* const call : {"socket", "bind", "unlink", "read", "close"}) {
        calls.failNext(call, EIO);
        start();
        stop();
        EXPECT_EQ(calls.pending(), 0U) << call;
        EXPECT_EQ(openDescriptors(), numbers) << call;
        EXPECT_EQ(alive(), before) << call;
    }
}

TEST_F(SyslogStateMachine, IsTakenDownWithNotificationsOffAndReactorsStillAtRest) {
    start();
    const IntegritySyslogSm* const going = sm.get();
    int seen = 0;
    Zell::traceSinkIs([&](const Zell::TraceLine& line) {
        seen += line.text == "handleDelete: " ? 1 : 0;
        EXPECT_EQ(going->refCount(), 0U);
        EXPECT_FALSE(going->hasNotificationActive());
        EXPECT_FALSE(going->zombieReactors());
    });
    stop();
    EXPECT_EQ(seen, 1);
}

TEST_F(SyslogStateMachine, TracesUnderItsOwnName) {
    EXPECT_EQ(IntegritySyslogSm::traceHandle().name(), "IntegritySyslogSm");
    std::string handle;
    Zell::traceSinkIs([&](const Zell::TraceLine& line) { handle = line.handle; });
    start();
    EXPECT_EQ(handle, "IntegritySyslogSm");
    stop();
    Zell::traceSinkIs(nullptr);
}

TEST_F(SyslogStateMachine, IsSilentAtLevelOneWhenNothingFails) {
    Zell::traceLevelIs(1);
    start(true);
    ASSERT_TRUE(send(realLine));
    dispatch();
    stop();
    EXPECT_EQ(traces, Texts{});
}

} // namespace

} // namespace Vestrel::Tests
