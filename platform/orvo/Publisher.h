// SPDX-License-Identifier: Apache-2.0
// Publish and subscribe between nodes: who changes tells, who reacts listens.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Value.h"

#include <cstdint>
#include <vector>

namespace Orvo {

class Publisher;

// Names an attribute of the publishing node's type.
using FieldId = std::uint32_t;

// Something embedded in a node that reacts to publications of other nodes. When it is destroyed it
// leaves every publisher that it is still subscribed to.
class VESTREL_EXPORT Subscriber {
public:
    // The owner is the node that embeds the subscriber; its notification flag decides on delivery.
    explicit Subscriber(Node& owner) noexcept : owner_(owner) {}

    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;
    virtual ~Subscriber();

    // An attribute of a node that this is subscribed to has changed.
    virtual void on_child(Publisher* publisher, Subscriber* subscriber, FieldId field,
                          const Value& oldValue, const Value& newValue) = 0;

    Node& owner() const noexcept { return owner_; }

private:
    friend class Publisher;
    Node& owner_;
    std::vector<Publisher*> publishers_;
};

class VESTREL_EXPORT Publisher {
public:
    explicit Publisher(Node& node) noexcept : node_(node) {}

    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;
    ~Publisher();

    Node& node() const noexcept { return node_; }

    // Subscribes; a second subscription of the same subscriber replaces the flag of the first. With
    // `whileInactive` publications are delivered also while the owner's notifications are off.
    void subscriberIs(Subscriber& subscriber, bool whileInactive);

    // Ends the subscription; does nothing when there is none. Allowed while publishing.
    void subscriberDel(Subscriber& subscriber) noexcept;

    bool subscribed(const Subscriber& subscriber) const noexcept;

    // Whether anybody whose owner is alive waits for publications now.
    bool hasActiveSubscriber() const noexcept;

    // Calls on_child of each subscriber whose owner's reactors may run. The publishing node and
    // each owner are held for the time of the call, so that a reactor may drop their last
    // reference.
    void publish(FieldId field, const Value& oldValue, const Value& newValue);

private:
    struct Subscription {
        Subscriber* subscriber; // null once ended during a publication
        bool whileInactive;

        bool deliverable() const noexcept;
        bool waiting() const noexcept;
    };

    class Publishing;

    Subscription* find(const Subscriber& subscriber) noexcept;
    void dropEnded() noexcept;

    Node& node_;
    std::vector<Subscription> subscriptions_;
    unsigned publishing_ = 0; // depth of publish() calls under way
};

} // namespace Orvo
