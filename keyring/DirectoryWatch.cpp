// SPDX-License-Identifier: Apache-2.0
// Opening the watch on a keyring's certificate directory.
#include "keymodel/IntegrityConstants.h"
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringCounters.h"
#include "platform/duolog/Duolog.h"
#include "platform/zell/OwnedFd.h"

#include <sys/inotify.h>

namespace Vestrel {

namespace {

// A file counts when its writer closes it or when it is moved; nothing else is asked for.
constexpr std::uint32_t watchedEvents = IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE;
static_assert(watchedEvents == 0x2c8);

} // namespace

KeyringWatcherInfo IntegrityKeyringSm::createInotifyWatch(const KeyringWatcherInfo& info) {
    const Orvo::String keyringName = info.keyringName;
    DUOLOG(5, keyringName);
    KeyringWatcherInfo result = info;

    Zell::OwnedFd inotify(inotify_init1(IN_NONBLOCK));
    if (!inotify) {
        DUOLOG_FAILED("inotify_init1");
        KeyringCounters::of(keyringName).failureIs("inotify_init1", errno);
        return result;
    }
    const Orvo::String directory = IntegrityConstants().keyringPathPrefix(keyringName);
    DUOLOG(5, "Creating watch on directory ", directory);
    const int watch = inotify_add_watch(inotify.get(), directory.c_str(), watchedEvents);
    if (watch == -1) {
        DUOLOG_FAILED("inotify_add_watch");
        KeyringCounters::of(keyringName).failureIs("inotify_add_watch", errno);
        return result;
    }
    inotifyDescriptorsIs(Zell::readableDescriptor(keyringName, inotify.get()));
    result.inotifyWatchId = watch;
    result.inotifyFd = inotify.release();
    return result;
}

} // namespace Vestrel
