// SPDX-License-Identifier: Apache-2.0
// Delivery of publications, safe against subscribers that come and go meanwhile.
#include "platform/orvo/Publisher.h"

#include "platform/zell/ActivityManager.h"

#include <algorithm>

namespace Orvo {

Subscriber::~Subscriber() {
    while (!publishers_.empty()) {
        publishers_.back()->subscriberDel(*this);
    }
}

Publisher::~Publisher() {
    for (const Subscription& subscription : subscriptions_) {
        if (subscription.subscriber != nullptr) {
            std::erase(subscription.subscriber->publishers_, this);
        }
    }
}

bool Publisher::Subscription::deliverable() const noexcept {
    return subscriber != nullptr && (whileInactive || subscriber->owner().reactorsRun());
}

bool Publisher::Subscription::waiting() const noexcept {
    return deliverable() && (whileInactive || subscriber->owner().refCount() != 0);
}

Publisher::Subscription* Publisher::find(const Subscriber& subscriber) noexcept {
    const auto found = std::ranges::find(subscriptions_, &subscriber, &Subscription::subscriber);
    return found == subscriptions_.end() ? nullptr : &*found;
}

void Publisher::subscriberIs(Subscriber& subscriber, bool whileInactive) {
    if (Subscription* const present = find(subscriber)) {
        present->whileInactive = whileInactive;
    } else {
        subscriptions_.reserve(subscriptions_.size() + 1); // so that both know the other or neither
        subscriber.publishers_.push_back(this);
        subscriptions_.push_back({&subscriber, whileInactive});
    }
    Zell::ActivityFacility::reactorsReevaluate();
}

void Publisher::subscriberDel(Subscriber& subscriber) noexcept {
    Subscription* const present = find(subscriber);
    if (present == nullptr) {
        return;
    }
    present->subscriber = nullptr;
    std::erase(subscriber.publishers_, this);
    dropEnded();
    Zell::ActivityFacility::reactorsReevaluate();
}

void Publisher::dropEnded() noexcept {
    if (publishing_ == 0) {
        std::erase_if(subscriptions_, [](const auto& entry) { return !entry.subscriber; });
    }
}

bool Publisher::subscribed(const Subscriber& subscriber) const noexcept {
    return std::ranges::find(subscriptions_, &subscriber, &Subscription::subscriber) !=
           subscriptions_.end();
}

bool Publisher::hasActiveSubscriber() const noexcept {
    return std::ranges::any_of(subscriptions_, &Subscription::waiting);
}

// Counts a publication under way, also when a reactor throws.
class Publisher::Publishing {
public:
    explicit Publishing(Publisher& publisher) noexcept : publisher_(publisher) {
        ++publisher_.publishing_;
    }

    Publishing(const Publishing&) = delete;
    Publishing& operator=(const Publishing&) = delete;

    ~Publishing() {
        --publisher_.publishing_;
        publisher_.dropEnded();
    }

private:
    Publisher& publisher_;
};

void Publisher::publish(FieldId field, const Value& oldValue, const Value& newValue) {
    const Ptr<Node> self(&node_);
    const Publishing depth(*this);
    // By index: a reactor may subscribe others, which come behind and are told as well.
    // NOLINTNEXTLINE(modernize-loop-convert)
    for (std::size_t i = 0; i < subscriptions_.size(); ++i) {
        if (!subscriptions_[i].deliverable()) {
            continue;
        }
        Subscriber& subscriber = *subscriptions_[i].subscriber;
        const Ptr<Node> owner(&subscriber.owner());
        subscriber.on_child(this, &subscriber, field, oldValue, newValue);
    }
}

} // namespace Orvo
