// SPDX-License-Identifier: Apache-2.0
// The pattern by which readable descriptors drive a state machine: a reactor that turns readiness
// into a call of a handler, and a named collection that subscribes the reactor to its members.
#pragma once

#include "platform/orvo/Ptr.h"
#include "platform/orvo/Publisher.h"
#include "platform/orvo/String.h"
#include "platform/zell/Errors.h"
#include "platform/zell/FileDescriptor.h"
#include "platform/zell/HashMap2018.h"

#include <functional>
#include <type_traits>

namespace Zell {

// Embedded in the owner, a node. `Handler` is a member function of the owner that takes the
// descriptor's name or nothing.
template <class Owner, auto Handler>
class DescriptorReactor final : public Orvo::Subscriber {
public:
    explicit DescriptorReactor(Owner& owner) : Subscriber(owner) {}

    // Moves the subscription from the old descriptor to the new one; either may be null.
    void on_selfPublisher(Owner* /*owner*/, const Orvo::Ptr<FileDescriptor>& oldDescriptor,
                          const Orvo::Ptr<FileDescriptor>& newDescriptor) {
        if (oldDescriptor) {
            oldDescriptor->publisher().subscriberDel(*this);
        }
        if (newDescriptor) {
            newDescriptor->publisher().subscriberIs(*this, false);
        }
    }

    // Ends the subscription when the owner is taken down.
    void on_shutdown(Owner* /*owner*/, const Orvo::Ptr<FileDescriptor>& descriptor) {
        if (descriptor) {
            descriptor->publisher().subscriberDel(*this);
        }
    }

    // The member of that name was inserted, replaced or removed.
    void on_self0(Owner* owner, bool /*unused*/, Orvo::String name,
                  const Orvo::Ptr<FileDescriptor>& oldDescriptor,
                  const Orvo::Ptr<FileDescriptor>& newDescriptor) {
        if ((oldDescriptor || newDescriptor) && owner->refCount() != 0) {
            handle(*owner, name);
        }
    }

    void on_child(Orvo::Publisher* publisher, Orvo::Subscriber* subscriber, Orvo::FieldId field,
                  const Orvo::Value& /*oldValue*/, const Orvo::Value& /*newValue*/) override {
        if (field != FileDescriptor::readableNotificationField) {
            return;
        }
        const Orvo::String name = static_cast<FileDescriptor&>(publisher->node()).name();
        handle(static_cast<Owner&>(subscriber->owner()), name);
    }

private:
    static void handle(Owner& owner, const Orvo::String& name) {
        if constexpr (std::is_invocable_v<decltype(Handler), Owner&, const Orvo::String&>) {
            std::invoke(Handler, owner, name);
        } else {
            std::invoke(Handler, owner);
        }
    }
};

// Descriptors under their own names. `Tag` names the collection and its account.
template <class Owner, class Tag, auto Handler>
class DescriptorCollection {
public:
    struct Label {
        static constexpr const char* pelbinName = Tag::pelbinName;

        struct KeyFunktor {
            Orvo::String operator()(const Orvo::Ptr<FileDescriptor>& descriptor) const {
                return descriptor->name();
            }
        };
    };

    using Map = HashMap2018<Label, Orvo::String, Orvo::Ptr<FileDescriptor>>;
    using Reactor = DescriptorReactor<Owner, Handler>;

    explicit DescriptorCollection(Owner& owner) : owner_(&owner), reactor_(owner) {}

    const Map& map() const noexcept { return map_; }

    Reactor& reactor() noexcept { return reactor_; }

    // Inserts or replaces, moves the subscription, and runs the handler once. Throws
    // NullArgumentError for a null pointer.
    Orvo::Ptr<FileDescriptor> is(const Orvo::Ptr<FileDescriptor>& descriptor) {
        if (!descriptor) {
            throw NullArgumentError(Tag::pelbinName);
        }
        // Copies, here and below: the caller's reference may be to the member itself.
        Orvo::Ptr<FileDescriptor> stored(descriptor);
        const Orvo::String name = stored->name();
        const Orvo::Ptr<FileDescriptor> before = map_.value(name);
        map_.valueIs(stored);
        reactor_.on_selfPublisher(owner_, before, stored);
        reactor_.on_self0(owner_, false, name, before, stored);
        return stored;
    }

    // Removes and returns the member, unsubscribes from it, and runs the handler once. Null when
    // there is none.
    Orvo::Ptr<FileDescriptor> del(const Orvo::String& name) {
        const Orvo::String kept(name); // NOLINT(performance-unnecessary-copy-initialization)
        Orvo::Ptr<FileDescriptor> removed = map_.del(kept);
        if (removed) {
            reactor_.on_selfPublisher(owner_, removed, nullptr);
            reactor_.on_self0(owner_, false, kept, removed, nullptr);
        }
        return removed;
    }

    void delAll() {
        for (auto member = map_.iterator(); member; ++member) {
            del(member.key());
        }
    }

    // Ends every subscription; the members stay.
    void shutdown() {
        for (auto member = map_.iterator(); member; ++member) {
            reactor_.on_shutdown(owner_, *member);
        }
    }

private:
    Owner* owner_;
    Map map_;
    Reactor reactor_;
};

} // namespace Zell
