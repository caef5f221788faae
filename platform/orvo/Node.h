// SPDX-License-Identifier: Apache-2.0
// The reference-counted base of every entity.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Threads.h"

#include <cstdint>
#include <memory>

namespace Zell {
class TypeData;
}

namespace Orvo {

class Publisher;

// Constructed with a count of 1, which Ptr::adopt takes over; deleted when the count returns to 0.
// All operations belong to the thread that runs the event loop.
class VESTREL_EXPORT Node {
public:
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    virtual ~Node();

    // Called when the last reference is gone; deletes the node.
    virtual void lastUserGone() noexcept;

    // Where others subscribe to this node's attributes; made on first use, lives as long as the
    // node. Throws std::bad_alloc.
    virtual Publisher& publisher();

    // The publisher if somebody has asked for it, or null.
    Publisher* publisherIfAny() const noexcept { return publisher_.get(); }

    // The node's registered type, or that of a plain node.
    virtual const Zell::TypeData& typeData() const;

    // Whether the node's reactors still run once its last reference is gone. A change has the event
    // loop look again at what it has to watch.
    virtual void zellDoZombieReactors(bool value);

    // Whether readiness is delivered to the node's reactors; false until switched on.
    bool hasNotificationActive() const noexcept { return hasNotificationActive_; }

    void hasNotificationActiveIs(bool value);

    bool zombieReactors() const noexcept { return zombieReactors_; }

    // Whether a publication may be delivered to the node's reactors now.
    bool reactorsRun() const noexcept {
        return refCount() != 0 ? hasNotificationActive_ : zombieReactors_;
    }

    std::uint32_t refCount() const noexcept { return refCount_.value(); }

    void refIs() const noexcept { refCount_.increment(); }

    void refDel() const noexcept;

protected:
    Node() noexcept;

private:
    mutable RefCount refCount_{1};
    mutable bool dying_ = false;
    bool hasNotificationActive_ = false;
    bool zombieReactors_ = false;
    std::unique_ptr<Publisher> publisher_;
};

} // namespace Orvo
