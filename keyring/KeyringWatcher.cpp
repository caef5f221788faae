// SPDX-License-Identifier: Apache-2.0
// Bringing one keyring under watch.
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringCounters.h"
#include "keyring/KeyringStock.h"
#include "platform/duolog/Duolog.h"

namespace Vestrel {

void IntegrityKeyringSm::createWatcher(const Orvo::String& keyringName) {
    const Duolog::Operation operation = DUOLOG_OPERATION;
    DUOLOG(5, keyringName);
    const Orvo::Ptr<IntegrityKeyColl> keyColl = integrityKeyringColl_->keyringIs(keyringName);

    const key_serial_t keyringId = find_key_by_type_and_desc("keyring", keyringName.c_str(), 0);
    if (keyringId == -1) {
        DUOLOG_FAILED("find_key_by_type_and_desc", ", keyring ", keyringName);
        KeyringCounters::of(keyringName).failureIs("find_key_by_type_and_desc", errno);
        return;
    }
    DUOLOG(5, "keyringId: ", keyringId);

    KeyringWatcherInfo info(keyringName);
    info.keyringId = keyringId;
    try {
        info = createInotifyWatch(info);
        info = createKeyringWatch(info);
        watcherInfosIs(info);
    } catch (...) {
        giveUp(info); // it is not on record
        throw;
    }

    KeyringStock stock(operation, *this, keyringName, keyColl);
    stock.existingKeysRead(keyringId);
    stock.directoryScan();
}

} // namespace Vestrel
