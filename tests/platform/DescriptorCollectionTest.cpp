// SPDX-License-Identifier: Apache-2.0
// Tests of the descriptor collection and its reactor, with a small owner of both kinds of handler.
#include "platform/zell/DescriptorCollection.h"

#include "tests/platform/Accounts.h"
#include "tests/platform/Actors.h"
#include "tests/platform/LoopTest.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

using Orvo::Ptr;
using Orvo::String;
using Zell::FileDescriptor;

class Owner : public Orvo::Node {
public:
    struct Tag {
        static constexpr const char* pelbinName = "Owner::descriptors";
    };

    void handleReadable(const String& name) {
        handled.emplace_back(name.view());
        if (reaction) {
            reaction(name);
        }
    }

    void handlePlain() { handled.emplace_back("plain"); }

    std::vector<std::string> handled;
    std::function<void(const String& name)> reaction;
    Zell::DescriptorCollection<Owner, Tag, &Owner::handleReadable> descriptors{*this};
    Zell::DescriptorReactor<Owner, &Owner::handlePlain> plain{*this};
};

using Names = std::vector<std::string>;

class DescriptorCollectionTest : public LoopTest {
protected:
    DescriptorCollectionTest() { owner->hasNotificationActiveIs(true); }

    bool subscribed(const Ptr<FileDescriptor>& descriptor) {
        return descriptor->publisher().subscribed(owner->descriptors.reactor());
    }

    // Forgets that inserting ran the handler.
    void insertBoth() {
        owner->descriptors.is(one);
        owner->descriptors.is(two);
        owner->handled.clear();
    }

    Pipe pipe;
    Ptr<Owner> owner = Orvo::makeNode<Owner>();
    Ptr<FileDescriptor> one = Orvo::makeNode<FileDescriptor>("one");
    Ptr<FileDescriptor> two = Zell::readableDescriptor("two", pipe.reader());
};

TEST_F(DescriptorCollectionTest, InsertsSubscribesAndRunsTheHandlerOnce) {
    EXPECT_EQ(owner->descriptors.is(one), one);
    EXPECT_EQ(owner->descriptors.map().value("one"), one);
    EXPECT_TRUE(subscribed(one));
    EXPECT_EQ(owner->handled, Names{"one"});
}

TEST_F(DescriptorCollectionTest, HoldsItsMembersForTheHandlerAlready) {
    owner->reaction = [&](const String& name) {
        EXPECT_EQ(owner->descriptors.map().value(name), one);
        EXPECT_TRUE(subscribed(one));
    };
    owner->descriptors.is(one);
    EXPECT_EQ(owner->handled.size(), 1U);
}

TEST_F(DescriptorCollectionTest, RefusesANullPointerAndChangesNothing) {
    owner->descriptors.is(one);
    owner->handled.clear();
    EXPECT_THROW(owner->descriptors.is(nullptr), Zell::NullArgumentError);
    EXPECT_EQ(owner->descriptors.map().size(), 1U);
    EXPECT_TRUE(owner->handled.empty());
}

TEST_F(DescriptorCollectionTest, MovesTheSubscriptionToADescriptorOfTheSameName) {
    insertBoth();
    const auto other = Orvo::makeNode<FileDescriptor>("one");
    EXPECT_EQ(owner->descriptors.is(other), other);
    EXPECT_EQ(owner->descriptors.map().size(), 2U);
    EXPECT_EQ(owner->descriptors.map().value("one"), other);
    EXPECT_FALSE(subscribed(one));
    EXPECT_TRUE(subscribed(other));
    EXPECT_EQ(owner->handled, Names{"one"});
    EXPECT_EQ(one->refCount(), 1U) << "the collection has let go of the old one";
}

TEST_F(DescriptorCollectionTest, StaysSubscribedWhenTheSameDescriptorIsInsertedAgain) {
    insertBoth();
    owner->descriptors.is(one);
    EXPECT_TRUE(subscribed(one));
    EXPECT_EQ(owner->handled, Names{"one"});
    EXPECT_EQ(one->refCount(), 2U);
}

TEST_F(DescriptorCollectionTest, RemovesUnsubscribesAndRunsTheHandlerOnce) {
    insertBoth();
    owner->reaction = [&](const String& name) {
        EXPECT_FALSE(owner->descriptors.map().has(name));
        EXPECT_FALSE(subscribed(one));
    };
    EXPECT_EQ(owner->descriptors.del("one"), one);
    EXPECT_EQ(owner->descriptors.map().size(), 1U);
    EXPECT_EQ(owner->handled, Names{"one"});
}

TEST_F(DescriptorCollectionTest, ReturnsNullAndRunsNoHandlerForAnAbsentName) {
    insertBoth();
    EXPECT_EQ(owner->descriptors.del("three"), nullptr);
    EXPECT_TRUE(owner->handled.empty());
    EXPECT_EQ(owner->descriptors.map().size(), 2U);
}

TEST_F(DescriptorCollectionTest, DeletesByTheNameInTheEntryItself) {
    one = nullptr;
    owner->descriptors.is(Orvo::makeNode<FileDescriptor>("one"));
    const auto member = owner->descriptors.map().iterator();
    owner->descriptors.del(member.key());
    EXPECT_EQ(owner->handled, (Names{"one", "one"}));
}

TEST_F(DescriptorCollectionTest, DeletesAllAndUnsubscribesFromEach) {
    insertBoth();
    owner->descriptors.delAll();
    EXPECT_TRUE(owner->descriptors.map().empty());
    EXPECT_FALSE(subscribed(one));
    EXPECT_FALSE(subscribed(two));
    EXPECT_EQ(owner->handled, (Names{"one", "two"}));
    owner->descriptors.delAll();
    EXPECT_EQ(owner->handled.size(), 2U);
}

TEST_F(DescriptorCollectionTest, EndsEverySubscriptionAndKeepsTheMembersAtShutdown) {
    insertBoth();
    owner->descriptors.shutdown();
    EXPECT_FALSE(subscribed(one));
    EXPECT_FALSE(subscribed(two));
    EXPECT_EQ(owner->descriptors.map().size(), 2U);
    EXPECT_TRUE(owner->handled.empty());
}

TEST_F(DescriptorCollectionTest, RunsTheHandlerWithTheNameWhenAMemberIsReadable) {
    insertBoth();
    owner->reaction = [&](const String& /*name*/) { pipe.drain(); };
    pipe.write();
    loop->dispatch();
    EXPECT_EQ(owner->handled, Names{"two"});
    owner->descriptors.del("two");
    owner->handled.clear();
    pipe.write();
    loop->dispatch();
    EXPECT_TRUE(owner->handled.empty());
}

TEST_F(DescriptorCollectionTest, RunsNoHandlerWhenAnotherAttributeChanges) {
    insertBoth();
    one->nonBlockingIs(true);
    one->notificationInterfaceIs(Zell::NotificationInterface::readiness);
    one->notifyOnReadableIs(true);
    one->descriptorIs(FileDescriptor::noDescriptor);
    EXPECT_TRUE(owner->handled.empty());
}

TEST_F(DescriptorCollectionTest, LetsTheHandlerRemoveTheDescriptorThatIsReported) {
    insertBoth();
    two = nullptr;
    owner->reaction = [&](const String& name) {
        owner->reaction = nullptr;
        owner->descriptors.del(name);
    };
    pipe.write();
    loop->dispatch();
    EXPECT_EQ(owner->handled, (Names{"two", "two"})) << "reported, then removed";
    EXPECT_FALSE(owner->descriptors.map().has("two"));
}

TEST_F(DescriptorCollectionTest, LetsTheHandlerDropTheOwner) {
    insertBoth();
    owner->reaction = [&](const String& /*name*/) { owner = nullptr; };
    pipe.write();
    loop->dispatch();
    EXPECT_EQ(owner, nullptr);
    EXPECT_FALSE(two->publisher().hasActiveSubscriber());
}

TEST_F(DescriptorCollectionTest, GivesTheMemoryOfItsEntriesBack) {
    insertBoth();
    EXPECT_GE(accountOf("Owner::descriptors").objects, 2U);
    owner = nullptr;
    EXPECT_EQ(accountOf("Owner::descriptors").objects, 0U);
    EXPECT_EQ(one->refCount(), 1U);
}

using DescriptorReactorTest = DescriptorCollectionTest;

TEST_F(DescriptorReactorTest, MovesItsSubscriptionBetweenDescriptorsEitherOfWhichMayBeNull) {
    auto& reactor = owner->plain;
    reactor.on_selfPublisher(owner.get(), nullptr, one);
    EXPECT_TRUE(one->publisher().subscribed(reactor));
    reactor.on_selfPublisher(owner.get(), one, two);
    EXPECT_FALSE(one->publisher().subscribed(reactor));
    EXPECT_TRUE(two->publisher().subscribed(reactor));
    reactor.on_selfPublisher(owner.get(), two, two);
    EXPECT_TRUE(two->publisher().subscribed(reactor));
    reactor.on_selfPublisher(owner.get(), two, nullptr);
    EXPECT_FALSE(two->publisher().subscribed(reactor));
    reactor.on_selfPublisher(owner.get(), nullptr, nullptr);
}

TEST_F(DescriptorReactorTest, UnsubscribesAtShutdown) {
    auto& reactor = owner->plain;
    reactor.on_selfPublisher(owner.get(), nullptr, one);
    reactor.on_shutdown(owner.get(), nullptr);
    EXPECT_TRUE(one->publisher().subscribed(reactor));
    reactor.on_shutdown(owner.get(), one);
    EXPECT_FALSE(one->publisher().subscribed(reactor));
}

TEST_F(DescriptorReactorTest, RunsTheHandlerWhenEitherDescriptorIsSet) {
    auto& reactor = owner->descriptors.reactor();
    reactor.on_self0(owner.get(), false, "both", one, two);
    reactor.on_self0(owner.get(), true, "old", one, nullptr);
    reactor.on_self0(owner.get(), false, "new", nullptr, two);
    reactor.on_self0(owner.get(), false, "none", nullptr, nullptr);
    EXPECT_EQ(owner->handled, (Names{"both", "old", "new"}));
}

// Takes its descriptors down while it is being destroyed.
class Dying : public Owner {
public:
    explicit Dying(std::vector<std::string>& handledAtEnd) : handledAtEnd_(handledAtEnd) {}

    ~Dying() override {
        handled.clear();
        descriptors.delAll();
        handledAtEnd_ = handled;
    }

private:
    std::vector<std::string>& handledAtEnd_;
};

TEST_F(DescriptorReactorTest, RunsNoHandlerOfAnOwnerThatIsBeingDestroyed) {
    std::vector<std::string> handledAtEnd{"not yet"};
    auto dying = Orvo::makeNode<Dying>(handledAtEnd);
    dying->descriptors.is(one);
    dying = nullptr;
    EXPECT_TRUE(handledAtEnd.empty());
    EXPECT_EQ(one->refCount(), 1U);
}

TEST_F(DescriptorReactorTest, ActsOnTheReadableNotificationAlone) {
    auto& reactor = owner->descriptors.reactor();
    for (const Orvo::FieldId field : {0U, 0x100U, 0x101U, 0x102U, 0x104U, 0x203U}) {
        reactor.on_child(&one->publisher(), &reactor, field, {}, {});
    }
    EXPECT_TRUE(owner->handled.empty());
    reactor.on_child(&one->publisher(), &reactor, 0x103, {}, {});
    EXPECT_EQ(owner->handled, Names{"one"});
}

TEST_F(DescriptorReactorTest, CallsAHandlerThatTakesNoName) {
    owner->plain.on_selfPublisher(owner.get(), nullptr, two);
    pipe.write();
    loop->dispatch();
    EXPECT_EQ(owner->handled, Names{"plain"});
}

TEST_F(DescriptorReactorTest, SubscribesForActiveOwnersOnly) {
    owner->hasNotificationActiveIs(false);
    owner->plain.on_selfPublisher(owner.get(), nullptr, two);
    pipe.write();
    loop->dispatch();
    EXPECT_TRUE(owner->handled.empty());
}

} // namespace

} // namespace Vestrel::Tests
