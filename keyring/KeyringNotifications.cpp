// SPDX-License-Identifier: Apache-2.0
// Changes of a kernel keyring, recorded in its key collection.
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringCounters.h"
#include "keyring/WatchNotification.h"
#include "platform/duolog/Duolog.h"
#include "platform/zell/Assertion.h"

#include <unistd.h>

#include <array>

namespace Vestrel {

namespace {

// Lives during one call of handleKeyringWatch(), in whose name it traces.
class NotificationDrain {
public:
    NotificationDrain(const Duolog::Operation& operation, IntegrityKeyringSm& stateMachine,
                      const Orvo::String& keyringName)
        : operation_(operation), stateMachine_(stateMachine), keyringName_(keyringName) {}

    void readAll(int descriptor);

private:
    static Zell::TraceHandle& traceHandle() { return IntegrityKeyringSm::traceHandle(); }

    void lossCount(const WatchNotification& notification);
    void received(const WatchNotification& notification);
    void metaReceived(const WatchNotification& notification);
    void keyReceived(const WatchNotification& notification);
    void keyLinked(S32 serial);

    const Duolog::Operation& operation_;
    IntegrityKeyringSm& stateMachine_;
    const Orvo::String keyringName_;
    KeyringCounters& counters_ = KeyringCounters::of(keyringName_);
};

void NotificationDrain::readAll(int descriptor) {
    std::array<char, WatchNotification::size> buffer{};
    for (;;) {
        const ssize_t got = read(descriptor, buffer.data(), buffer.size());
        if (got == -1 && errno == EAGAIN) {
            DUOLOG_IN(operation_, 5, "No more to read");
            return;
        }
        if (got == -1) {
            DUOLOG_FAILED_IN(operation_, "read");
            return;
        }
        if (got == 0) {
            return;
        }
        DUOLOG_IN(operation_, 5, "Read ", got, " bytes");
        if (static_cast<std::size_t>(got) < buffer.size()) {
            DUOLOG_IN(operation_, 5, "Read too few bytes for a valid notification");
            if (static_cast<std::size_t>(got) == WatchNotification::headerSize) {
                lossCount(WatchNotification::decoded(buffer));
            }
            continue;
        }
        received(WatchNotification::decoded(buffer));
    }
}

// The kernel's own report of a loss is a header without a body.
void NotificationDrain::lossCount(const WatchNotification& notification) {
    if (notification.type == WatchNotification::meta &&
        notification.subtype == WatchNotification::loss) {
        counters_.doubtIs(&KeyringCounters::notificationsLost);
    }
}

void NotificationDrain::received(const WatchNotification& notification) {
    DUOLOG_IN(operation_, 5, "Received notification of type ", notification.type, ", subType ",
              notification.subtype);
    DUOLOG_IN(operation_, 5, "Length of notification: ", notification.length);
    ++counters_.notifications;
    if (notification.type == WatchNotification::meta) {
        metaReceived(notification);
    } else if (notification.type == WatchNotification::key) {
        keyReceived(notification);
    }
}

void NotificationDrain::metaReceived(const WatchNotification& notification) {
    switch (notification.subtype) {
    case WatchNotification::removal:
        DUOLOG_IN(operation_, 1, "Watched keyring ", keyringName_, " has been removed");
        counters_.doubtIs(&KeyringCounters::upsets);
        return;
    case WatchNotification::loss:
        DUOLOG_IN(operation_, 1, "Notification was lost");
        counters_.doubtIs(&KeyringCounters::notificationsLost);
        return;
    default: // names the type, which is 0 here, not the subtype
        DUOLOG_IN(operation_, 1, "Unknown meta notification received: ", notification.type);
    }
}

void NotificationDrain::keyReceived(const WatchNotification& notification) {
    if (notification.length != WatchNotification::size) {
        DUOLOG_IN(operation_, 1, "Notification has incorrect message length");
        return;
    }
    DUOLOG_IN(operation_, 5, "Received notification for keyring: ", notification.keyId,
              ", subType: ", notification.subtypeName(), ", keyId: ", notification.aux);
    switch (notification.subtype) {
    case WatchNotification::linked:
        keyLinked(static_cast<S32>(notification.aux));
        return;
    case WatchNotification::unlinked:
        stateMachine_.clearKey(static_cast<S32>(notification.aux), keyringName_);
        return;
    case WatchNotification::cleared:
    case WatchNotification::revoked:
    case WatchNotification::invalidated:
        counters_.doubtIs(&KeyringCounters::upsets);
        [[fallthrough]];
    default:
        DUOLOG_IN(operation_, 5, "Ignoring notification");
    }
}

void NotificationDrain::keyLinked(S32 serial) {
    const IntegrityKey noKey;
    const IntegrityKey key = stateMachine_.getKey(serial, keyringName_);
    if (IntegrityKey::isEq(&key, &noKey)) {
        return;
    }
    stateMachine_.removeDuplicates(key, keyringName_);
    const Orvo::Ptr<IntegrityKeyColl> keyColl =
        stateMachine_.integrityKeyringColl()->keyring(keyringName_);
    if (!keyColl) {
        Zell::assertionFailed("IntegrityKeyringSm", __LINE__, operation_.name, "keyColl");
    }
    keyColl->keyIs(key);
}

} // namespace

void IntegrityKeyringSm::handleKeyringWatch(const Orvo::String& keyringName) {
    const auto* const descriptor = keyringWatchFileDescriptors().find(keyringName);
    if (descriptor == nullptr ||
        (*descriptor)->descriptor() == Zell::FileDescriptor::noDescriptor) {
        return;
    }
    DUOLOG(5, keyringName);
    const Duolog::Operation operation = DUOLOG_OPERATION;
    NotificationDrain(operation, *this, keyringName).readAll((*descriptor)->descriptor());
}

} // namespace Vestrel
