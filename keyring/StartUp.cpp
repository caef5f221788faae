// SPDX-License-Identifier: Apache-2.0
// The keyring state machine's start-up.
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringCounters.h"
#include "platform/duolog/Duolog.h"
#include "platform/zell/ActivityManager.h"

namespace Vestrel {

void IntegrityKeyringSm::handleInitialized() {
    DUOLOG(5, "");
    keyLoaderIs();
    Zell::ActivityFacility::activityManagerConfig().useEpollIs(true);
    {
        const Orvo::Ptr<IntegrityKeyringColl> coll = integrityKeyringColl_;
        coll->keyringDelAll();
    }
    KeyringCounters::refusedForget(); // they are offered again
    for (const char* const keyringName : keyringNames) {
        createWatcher(keyringName);
    }
}

} // namespace Vestrel
