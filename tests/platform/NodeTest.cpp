// SPDX-License-Identifier: Apache-2.0
// Tests of a node's life: its count, its end, its flags, and counts shared between threads.
#include "platform/orvo/Node.h"

#include "platform/orvo/Threads.h"
#include "platform/zell/TypeData.h"
#include "tests/platform/Actors.h"

#include <gtest/gtest.h>

#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

namespace {

using Orvo::Ptr;

// Takes and drops references of itself while it goes.
class SelfReferring : public Orvo::Node {
public:
    explicit SelfReferring(int& ends) : ends_(ends) {}

    ~SelfReferring() override {
        ++ends_;
        const Ptr<SelfReferring> first(this);
        const Ptr<SelfReferring> second(first); // NOLINT(performance-unnecessary-copy-*)
    }

private:
    int& ends_;
};

class Postponed : public Orvo::Node {
public:
    void lastUserGone() noexcept override { ++lastUsersGone; }

    int lastUsersGone = 0;
};

// Notes what its zombie flag is set to.
class ZombieNote : public Orvo::Node {
public:
    void zellDoZombieReactors(bool value) override {
        values.push_back(value);
        Node::zellDoZombieReactors(value);
    }

    std::vector<bool> values;
};

TEST(Node, StartsWithACountOfOneThatAdoptTakesOver) {
    auto* const raw = new Actor;
    EXPECT_EQ(raw->refCount(), 1U);
    const auto adopted = Ptr<Actor>::adopt(raw);
    EXPECT_EQ(adopted->refCount(), 1U);
}

TEST(Node, CountsCopiesButNotMoves) {
    const auto node = Orvo::makeNode<Actor>();
    {
        Ptr<Actor> copy(node);
        EXPECT_EQ(node->refCount(), 2U);
        const Ptr<Actor> moved(std::move(copy));
        EXPECT_EQ(node->refCount(), 2U);
        const Ptr<Orvo::Node> base(moved);
        EXPECT_EQ(node->refCount(), 3U);
        const Ptr<Actor> raw(node.get());
        EXPECT_EQ(node->refCount(), 4U);
    }
    EXPECT_EQ(node->refCount(), 1U);
}

TEST(Node, IsDeletedWithItsLastReference) {
    bool gone = false;
    auto first = Orvo::makeNode<Actor>(&gone);
    auto second = first;
    first = nullptr;
    EXPECT_FALSE(gone);
    second = nullptr;
    EXPECT_TRUE(gone);
}

TEST(Node, SurvivesAssignmentOfItsPointerToItself) {
    bool gone = false;
    auto node = Orvo::makeNode<Actor>(&gone);
    const auto& alias = node;
    node = alias;
    EXPECT_FALSE(gone);
    EXPECT_EQ(node->refCount(), 1U);
}

TEST(Node, IsDeletedOnceWhenItsDestructorTakesReferences) {
    int ends = 0;
    Orvo::makeNode<SelfReferring>(ends) = nullptr;
    EXPECT_EQ(ends, 1);
}

TEST(Node, TellsOnceThatTheLastUserIsGone) {
    auto* const node = new Postponed;
    Ptr<Postponed>::adopt(node) = nullptr;
    EXPECT_EQ(node->lastUsersGone, 1);
    node->refIs();
    node->refDel();
    EXPECT_EQ(node->lastUsersGone, 1);
    delete node;
}

TEST(Ptr, IsNullByDefault) {
    const Ptr<Actor> none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(Ptr<Actor>(nullptr).get(), nullptr);
    EXPECT_EQ(Ptr<Actor>(none), none);
}

TEST(Ptr, ComparesAndHashesByNode) {
    const auto one = Orvo::makeNode<Actor>();
    const auto two = Orvo::makeNode<Actor>();
    const std::unordered_set<Ptr<Actor>> set{one, two, Ptr<Actor>(one)};
    EXPECT_EQ(set.size(), 2U);
    EXPECT_NE(one, two);
    EXPECT_EQ(&*one, one.get());
}

TEST(Node, HasNotificationsOffUntilSwitchedOn) {
    const auto node = Orvo::makeNode<Actor>();
    EXPECT_FALSE(node->hasNotificationActive());
    EXPECT_FALSE(node->reactorsRun());
    node->hasNotificationActiveIs(true);
    EXPECT_TRUE(node->hasNotificationActive());
    EXPECT_TRUE(node->reactorsRun());
    node->hasNotificationActiveIs(false);
    EXPECT_FALSE(node->reactorsRun());
}

TEST(Node, LeavesTheZombieFlagAsItWasWhenNotificationsChange) {
    const auto node = Orvo::makeNode<Actor>();
    node->hasNotificationActiveIs(true);
    EXPECT_FALSE(node->zombieReactors());
    node->zellDoZombieReactors(true);
    node->hasNotificationActiveIs(false);
    EXPECT_TRUE(node->zombieReactors());
}

TEST(Node, SetsTheZombieFlagAndSetsItBackOnlyWhenNotificationsChange) {
    const auto node = Orvo::makeNode<ZombieNote>();
    node->hasNotificationActiveIs(false);
    EXPECT_EQ(node->values, std::vector<bool>{});
    node->hasNotificationActiveIs(true);
    EXPECT_EQ(node->values, (std::vector<bool>{true, false}));
    node->hasNotificationActiveIs(true);
    EXPECT_EQ(node->values.size(), 2U);
}

TEST(Node, RunsReactorsOfALivingNodeByItsNotificationFlagOnly) {
    const auto node = Orvo::makeNode<Actor>();
    node->zellDoZombieReactors(true);
    EXPECT_FALSE(node->reactorsRun());
}

TEST(Node, RunsReactorsOfADyingNodeByItsZombieFlagOnly) {
    auto* const node = new Postponed;
    node->hasNotificationActiveIs(true);
    node->refDel();
    EXPECT_FALSE(node->reactorsRun());
    node->zellDoZombieReactors(true);
    EXPECT_TRUE(node->reactorsRun());
    node->hasNotificationActiveIs(false);
    EXPECT_TRUE(node->reactorsRun());
    delete node;
}

TEST(Node, MakesItsPublisherOnFirstUse) {
    const auto node = Orvo::makeNode<Actor>();
    EXPECT_EQ(node->publisherIfAny(), nullptr);
    Orvo::Publisher& publisher = node->publisher();
    EXPECT_EQ(&publisher.node(), node.get());
    EXPECT_EQ(node->publisherIfAny(), &publisher);
    EXPECT_EQ(&node->publisher(), &publisher);
}

TEST(Node, IsAPlainNodeToReflectionUnlessItSaysOtherwise) {
    const auto node = Orvo::makeNode<Actor>();
    EXPECT_STREQ(node->typeData().name(), "Orvo::Node");
    EXPECT_TRUE(node->typeData().attributes().empty());
}

// Two threads take and drop references and copies of one text; ends the process with status 0 when
// nothing was lost.
[[noreturn]] void countsShareThreads() {
    Orvo::threadedIs();
    const auto node = Orvo::makeNode<Actor>();
    const Orvo::String text("shared between threads");
    const auto work = [&] {
        for (int i = 0; i < 200000; ++i) {
            const Ptr<Actor> held(node);
            const Orvo::String copy(text);
            const Orvo::String own("of one thread");
        }
    };
    std::thread other(work);
    work();
    other.join();
    _exit(Orvo::threaded() && node->refCount() == 1 && text.view() == "shared between threads" ? 0
                                                                                               : 1);
}

TEST(Threads, AreOffUntilAskedFor) {
    EXPECT_FALSE(Orvo::threaded());
}

TEST(Threads, LoseNoReferenceOnceAskedFor) {
    EXPECT_EXIT(countsShareThreads(), testing::ExitedWithCode(0), "");
}

} // namespace

} // namespace Vestrel::Tests
