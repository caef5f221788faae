// SPDX-License-Identifier: Apache-2.0
// Opening the watch queue of a keyring.
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringCounters.h"
#include "keyring/WatchNotification.h"
#include "platform/duolog/Duolog.h"
#include "platform/zell/OwnedFd.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>

namespace Vestrel {

KeyringWatcherInfo IntegrityKeyringSm::createKeyringWatch(const KeyringWatcherInfo& info) {
    KeyringWatcherInfo result = info;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), notificationPipeFlag) == -1) {
        DUOLOG_FAILED("pipe2");
        KeyringCounters::of(info.keyringName).failureIs("pipe2", errno);
        return result;
    }
    // Declared in this order, a failure closes the read end first.
    Zell::OwnedFd writeEnd(ends[1]);
    Zell::OwnedFd readEnd(ends[0]);
    DUOLOG(5, "readFd: ", readEnd.get());
    DUOLOG(5, "writeFd: ", writeEnd.get());

    if (ioctl(writeEnd.get(), setQueueSizeRequest, queueSlots) == -1) {
        DUOLOG_FAILED("ioctl IOC_WATCH_QUEUE_SET_SIZE");
        KeyringCounters::of(info.keyringName).failureIs("ioctl IOC_WATCH_QUEUE_SET_SIZE", errno);
        return result;
    }
    // The keyring being set up is a member already, found in the kernel or not, so ids start at 1.
    const auto watchId = static_cast<S32>(integrityKeyringColl_->keyringCount());
    DUOLOG(5, info.keyringName, " assigned watchId ", watchId);
    result.keyringWatchId = watchId;
    if (keyctl_watch_key(info.keyringId, writeEnd.get(), watchId) == -1) {
        DUOLOG_FAILED("keyctl_watch_key");
        KeyringCounters::of(info.keyringName).failureIs("keyctl_watch_key", errno);
        return result;
    }
    keyringWatchFileDescriptorsIs(Zell::readableDescriptor(info.keyringName, readEnd.get()));
    result.readFd = readEnd.release();
    result.writeFd = writeEnd.release(); // open for the life of the watch
    return result;
}

} // namespace Vestrel
