// SPDX-License-Identifier: Apache-2.0
// Tests of publications: who hears of them, and what reactors may do meanwhile.
#include "platform/orvo/Publisher.h"

#include "tests/platform/Actors.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace Vestrel::Tests {

namespace {

using Orvo::Ptr;

class PublisherTest : public testing::Test {
protected:
    PublisherTest() {
        first->hasNotificationActiveIs(true);
        second->hasNotificationActiveIs(true);
    }

    void publish() { node->publisher().publish(7, std::int64_t{1}, std::int64_t{2}); }

    bool nodeGone = false;
    bool firstGone = false;
    Ptr<Actor> node = Orvo::makeNode<Actor>(&nodeGone);
    Ptr<Actor> first = Orvo::makeNode<Actor>(&firstGone);
    Ptr<Actor> second = Orvo::makeNode<Actor>();
};

TEST_F(PublisherTest, TellsEachSubscriberTheFieldAndBothValues) {
    node->publisher().subscriberIs(first->listener, false);
    node->publisher().subscriberIs(second->listener, false);
    publish();
    const std::vector<Listener::Heard> expected{{7, std::int64_t{1}, std::int64_t{2}}};
    EXPECT_EQ(first->listener.heard, expected);
    EXPECT_EQ(second->listener.heard, expected);
}

TEST_F(PublisherTest, TellsNobodyElse) {
    node->publisher().subscriberIs(first->listener, false);
    publish();
    EXPECT_TRUE(second->listener.heard.empty());
    EXPECT_FALSE(node->publisher().subscribed(second->listener));
}

TEST_F(PublisherTest, TellsOnlyWhileNotificationsOfTheOwnerAreOn) {
    node->publisher().subscriberIs(first->listener, false);
    first->hasNotificationActiveIs(false);
    EXPECT_FALSE(node->publisher().hasActiveSubscriber());
    publish();
    EXPECT_TRUE(first->listener.heard.empty());
    first->hasNotificationActiveIs(true);
    EXPECT_TRUE(node->publisher().hasActiveSubscriber());
    publish();
    EXPECT_EQ(first->listener.heard.size(), 1U);
}

TEST_F(PublisherTest, TellsAlsoWhileInactiveWhenAskedTo) {
    first->hasNotificationActiveIs(false);
    node->publisher().subscriberIs(first->listener, true);
    EXPECT_TRUE(node->publisher().hasActiveSubscriber());
    publish();
    EXPECT_EQ(first->listener.heard.size(), 1U);
}

TEST_F(PublisherTest, ReplacesTheFlagWhenSubscribedAgain) {
    first->hasNotificationActiveIs(false);
    node->publisher().subscriberIs(first->listener, true);
    node->publisher().subscriberIs(first->listener, false);
    publish();
    EXPECT_TRUE(first->listener.heard.empty());
    node->publisher().subscriberIs(first->listener, true);
    publish();
    EXPECT_EQ(first->listener.heard.size(), 1U) << "one subscription, not three";
    node->publisher().subscriberDel(first->listener);
    EXPECT_FALSE(node->publisher().subscribed(first->listener));
}

TEST_F(PublisherTest, ForgetsWhoUnsubscribes) {
    node->publisher().subscriberIs(first->listener, false);
    EXPECT_TRUE(node->publisher().subscribed(first->listener));
    node->publisher().subscriberDel(first->listener);
    node->publisher().subscriberDel(first->listener);
    EXPECT_FALSE(node->publisher().hasActiveSubscriber());
    publish();
    EXPECT_TRUE(first->listener.heard.empty());
}

TEST_F(PublisherTest, LetsAReactorUnsubscribeItself) {
    node->publisher().subscriberIs(first->listener, false);
    node->publisher().subscriberIs(second->listener, false);
    first->listener.reaction = [&] { node->publisher().subscriberDel(first->listener); };
    publish();
    publish();
    EXPECT_EQ(first->listener.heard.size(), 1U);
    EXPECT_EQ(second->listener.heard.size(), 2U);
}

TEST_F(PublisherTest, TellsNobodyWhomAReactorHasUnsubscribed) {
    node->publisher().subscriberIs(first->listener, false);
    node->publisher().subscriberIs(second->listener, false);
    first->listener.reaction = [&] { node->publisher().subscriberDel(second->listener); };
    publish();
    EXPECT_TRUE(second->listener.heard.empty());
}

TEST_F(PublisherTest, TellsWhomAReactorHasSubscribed) {
    node->publisher().subscriberIs(first->listener, false);
    first->listener.reaction = [&] { node->publisher().subscriberIs(second->listener, false); };
    publish();
    EXPECT_EQ(second->listener.heard.size(), 1U);
    EXPECT_EQ(first->listener.heard.size(), 1U);
}

TEST_F(PublisherTest, KeepsItsPlaceWhileManyAreSubscribedDuringAPublication) {
    std::vector<Ptr<Actor>> many;
    node->publisher().subscriberIs(first->listener, false);
    first->listener.reaction = [&] {
        for (int i = 0; i < 100; ++i) {
            many.push_back(Orvo::makeNode<Actor>());
            many.back()->hasNotificationActiveIs(true);
            node->publisher().subscriberIs(many.back()->listener, false);
        }
    };
    publish();
    for (const auto& each : many) {
        EXPECT_EQ(each->listener.heard.size(), 1U);
    }
}

TEST_F(PublisherTest, HoldsTheOwnerOfAReactorThatDropsItsLastReference) {
    node->publisher().subscriberIs(first->listener, false);
    node->publisher().subscriberIs(second->listener, false);
    bool goneInside = true;
    first->listener.reaction = [&] {
        first = nullptr;
        goneInside = firstGone;
    };
    publish();
    EXPECT_FALSE(goneInside);
    EXPECT_TRUE(firstGone);
    EXPECT_EQ(second->listener.heard.size(), 1U);
}

TEST_F(PublisherTest, HoldsThePublishingNodeWhenAReactorDropsItsLastReference) {
    node->publisher().subscriberIs(first->listener, false);
    node->publisher().subscriberIs(second->listener, false);
    bool goneInside = true;
    first->listener.reaction = [&] {
        node = nullptr;
        goneInside = nodeGone;
    };
    publish();
    EXPECT_FALSE(goneInside);
    EXPECT_TRUE(nodeGone);
    EXPECT_EQ(second->listener.heard.size(), 1U);
}

TEST_F(PublisherTest, LetsTheExceptionOfAReactorThroughAndStaysUsable) {
    node->publisher().subscriberIs(first->listener, false);
    first->listener.reaction = [&] {
        node->publisher().subscriberDel(first->listener);
        throw std::runtime_error("reactor");
    };
    EXPECT_THROW(publish(), std::runtime_error);
    EXPECT_EQ(node->refCount(), 1U);
    node->publisher().subscriberIs(second->listener, false);
    publish();
    EXPECT_EQ(first->listener.heard.size(), 1U);
    EXPECT_EQ(second->listener.heard.size(), 1U);
}

TEST_F(PublisherTest, PublishesWithinAPublication) {
    node->publisher().subscriberIs(first->listener, false);
    node->publisher().subscriberIs(second->listener, false);
    first->listener.reaction = [&] {
        if (first->listener.heard.size() == 1) {
            publish();
            node->publisher().subscriberDel(first->listener);
        }
    };
    publish();
    EXPECT_EQ(first->listener.heard.size(), 2U);
    EXPECT_EQ(second->listener.heard.size(), 2U);
}

TEST_F(PublisherTest, IsLeftByASubscriberThatGoes) {
    auto listener = std::make_unique<Listener>(*first);
    const auto other = Orvo::makeNode<Actor>();
    node->publisher().subscriberIs(*listener, false);
    other->publisher().subscriberIs(*listener, false);
    listener = nullptr;
    EXPECT_FALSE(node->publisher().hasActiveSubscriber());
    EXPECT_FALSE(other->publisher().hasActiveSubscriber());
    publish();
}

TEST_F(PublisherTest, LetsAReactorDestroyAnotherSubscriber) {
    auto listener = std::make_unique<Listener>(*second);
    node->publisher().subscriberIs(first->listener, false);
    node->publisher().subscriberIs(*listener, false);
    first->listener.reaction = [&] { listener = nullptr; };
    publish();
    EXPECT_EQ(first->listener.heard.size(), 1U);
}

TEST_F(PublisherTest, MayGoBeforeItsSubscribers) {
    node->publisher().subscriberIs(first->listener, false);
    node = nullptr;
    EXPECT_TRUE(nodeGone);
    first = nullptr;
    EXPECT_TRUE(firstGone);
}

// Publishes from the destructor of the subscriber's owner.
class LastWords : public Actor {
public:
    LastWords(Orvo::Publisher& publisher, bool zombie, std::size_t& heard)
        : publisher_(publisher), heard_(heard) {
        hasNotificationActiveIs(true);
        publisher.subscriberIs(listener, false);
        zellDoZombieReactors(zombie);
    }

    ~LastWords() override {
        waitedFor = publisher_.hasActiveSubscriber();
        publisher_.publish(1, {}, {});
        heard_ = listener.heard.size();
    }

    static inline bool waitedFor = false;

private:
    Orvo::Publisher& publisher_;
    std::size_t& heard_;
};

TEST_F(PublisherTest, TellsADyingOwnerOnlyWhenItsZombieFlagIsSet) {
    std::size_t heard = 9;
    Orvo::makeNode<LastWords>(node->publisher(), false, heard) = nullptr;
    EXPECT_EQ(heard, 0U);
    Orvo::makeNode<LastWords>(node->publisher(), true, heard) = nullptr;
    EXPECT_EQ(heard, 1U);
    EXPECT_FALSE(LastWords::waitedFor) << "no descriptor is watched for the sake of a dying owner";
}

} // namespace

} // namespace Vestrel::Tests
