// SPDX-License-Identifier: Apache-2.0
// Life and notification flags of a node.
#include "platform/orvo/Node.h"

#include "platform/orvo/Publisher.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/TypeData.h"

namespace Orvo {

Node::Node() noexcept = default;

Node::~Node() = default;

void Node::lastUserGone() noexcept {
    delete this;
}

Publisher& Node::publisher() {
    if (!publisher_) {
        publisher_ = std::make_unique<Publisher>(*this);
    }
    return *publisher_;
}

const Zell::TypeData& Node::typeData() const {
    static const Zell::TypeData plain("Orvo::Node");
    return plain;
}

void Node::zellDoZombieReactors(bool value) {
    if (zombieReactors_ == value) {
        return;
    }
    zombieReactors_ = value;
    Zell::ActivityFacility::reactorsReevaluate();
}

void Node::hasNotificationActiveIs(bool value) {
    if (hasNotificationActive_ == value) {
        return;
    }
    hasNotificationActive_ = value;
    const bool before = zombieReactors_;
    zellDoZombieReactors(true);
    zellDoZombieReactors(before);
}

void Node::refDel() const noexcept {
    if (refCount_.decrement() != 0 || dying_) {
        return;
    }
    dying_ = true; // references taken and dropped by the destructor do not delete again
    const_cast<Node*>(this)->lastUserGone();
}

} // namespace Orvo
