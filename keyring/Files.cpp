// SPDX-License-Identifier: Apache-2.0
// Certificate files: loaded, reloaded, dropped, and the maps between files and descriptions.
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringCounters.h"
#include "logmsg/LogCall.h"
#include "logmsg/LogMessages.h"
#include "platform/duolog/Duolog.h"
#include "platform/zell/Assertion.h"

#include <cerrno>
#include <cstring>

namespace Vestrel {

namespace {

constexpr const char* unit = "IntegrityKeyringSm";

LogHandles logHandles;

} // namespace

key_serial_t IntegrityKeyringSm::loadFile(const Orvo::String& keyringName,
                                          const Orvo::String& file) {
    DUOLOG(5, keyringName, ", ", file);
    const key_serial_t serial = keyLoader_->loadKey(file, keyringName);
    if (serial == -1) {
        char* const cause = std::strerror(errno);
        log(logHandles.VESTREL_INTEGRITY_LOAD_KEY_FAIL, file, keyringName, cause);
        KeyringCounters::of(keyringName).refusalIs(file, cause);
        return -1;
    }
    KeyringCounters::of(keyringName).loadIs(file);
    DUOLOG(5, "Mapping ", serial, " to ", file);
    const Orvo::Ptr<IntegrityKeyColl> keyColl = integrityKeyringColl_->keyring(keyringName);
    ZELL_ASSERT(unit, keyColl);
    const IntegrityKey key = getKey(serial, keyringName);
    if (!key.description.empty()) {
        keyColl->descriptionToFileIs(key.description)->filePathIs(file);
        keyColl->fileToDescriptionIs(file, key.description);
    }
    return serial;
}

void IntegrityKeyringSm::modifyFile(const Orvo::String& keyringName, const Orvo::String& file) {
    DUOLOG(5, keyringName, ", ", file);
    const Orvo::Ptr<IntegrityKeyColl> keyColl = integrityKeyringColl_->keyring(keyringName);
    ZELL_ASSERT(unit, keyColl);
    const Orvo::String oldDesc = keyColl->fileToDescription(file); // before loading replaces it
    const key_serial_t serial = loadFile(keyringName, file);
    const IntegrityKey newKey = getKey(serial, keyringName);
    if (!oldDesc.empty() && newKey.description != oldDesc) {
        unmapFileToDescription(keyringName, file, oldDesc);
    }
}

void IntegrityKeyringSm::removeFile(const Orvo::String& keyringName, const Orvo::String& file) {
    DUOLOG(5, keyringName, ", ", file);
    const Orvo::Ptr<IntegrityKeyColl> keyColl = integrityKeyringColl_->keyring(keyringName);
    ZELL_ASSERT(unit, keyColl);
    const Orvo::String oldDesc = keyColl->fileToDescription(file);
    ZELL_ASSERT_TEXT(unit, !oldDesc.empty(), "oldDesc");
    unmapFileToDescription(keyringName, file, oldDesc);
}

void IntegrityKeyringSm::unmapFileToDescription(const Orvo::String& keyringName,
                                                const Orvo::String& file,
                                                const Orvo::String& description) {
    DUOLOG(5, keyringName, ", ", file, " <-> ", description);
    const Orvo::Ptr<IntegrityKeyColl> keyColl = integrityKeyringColl_->keyring(keyringName);
    ZELL_ASSERT_TEXT(unit, keyColl && keyColl->descriptionToFileHas(description),
                     "keyColl && keyColl->descriptionToFileHas( description )");
    if (keyColl->fileToDescription(file) == description) {
        keyColl->fileToDescriptionDel(file);
    }
    const Orvo::Ptr<FileSetPerDescription> files = keyColl->descriptionToFile(description);
    files->filePathDel(file);
    if (files->filePathCount() != 0) {
        return; // other files still carry the description
    }
    keyColl->descriptionToFileDel(description);
    DUOLOG(5, "Removing the key matching the old file content");
    for (auto key = keyColl->key().iterator(); key; ++key) {
        if (key->description == description) {
            unlinkKey(key->serial, keyringName);
            break; // only this one, even if more records share the description
        }
    }
}

} // namespace Vestrel
