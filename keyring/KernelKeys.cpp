// SPDX-License-Identifier: Apache-2.0
// Single keys of the kernel: described, forgotten, unlinked, replaced.
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringCounters.h"
#include "platform/duolog/Duolog.h"

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

namespace Vestrel {

namespace {

constexpr char fieldDelimiter = ';';
constexpr int fieldsAfterType = 4; // uid, gid, permissions, description

} // namespace

IntegrityKey IntegrityKeyringSm::getKey(S32 keyId, const Orvo::String& keyringName) {
    DUOLOG(5, keyId, ", ", keyringName);
    char* text = nullptr;
    if (keyctl_describe_alloc(keyId, &text) == -1) {
        DUOLOG_FAILED("keyctl_describe_alloc");
        return {};
    }
    const std::unique_ptr<char, decltype(&std::free)> holder(text, &std::free);
    DUOLOG(5, "keyctl_describe_alloc: ", text);

    std::istringstream fields(text);
    fields.exceptions(std::ios_base::badbit); // memory that is out makes no shorter description
    std::string field;
    std::getline(fields, field, fieldDelimiter);
    const Orvo::String type(field);
    if (type == "keyring") {
        DUOLOG(5, "Key is a keyring, ignoring");
        return {};
    }
    // A description that holds the delimiter is cut there.
    for (int i = 0; i < fieldsAfterType; ++i) {
        std::getline(fields, field, fieldDelimiter);
    }
    return {keyId, field, type};
}

void IntegrityKeyringSm::clearKey(S32 keyId, const Orvo::String& keyringName) {
    DUOLOG(5, keyId, ", ", keyringName);
    const Orvo::Ptr<IntegrityKeyColl> keyColl = integrityKeyringColl_->keyring(keyringName);
    if (keyColl && keyColl->key(keyId) != nullptr) {
        keyColl->keyDel(keyId);
    }
}

void IntegrityKeyringSm::unlinkKey(S32 keyId, const Orvo::String& keyringName) {
    DUOLOG(5, keyId, ", ", keyringName);
    const KeyringWatcherInfo info = watcherInfos(keyringName);
    if (!info) {
        DUOLOG(5, "No watcher info for ", keyringName);
        return;
    }
    if (keyctl_describe(keyId, nullptr, 0) == -1) {
        return; // the key is gone already
    }
    DUOLOG(5, "Unlinking ", keyId);
    if (keyctl_unlink(keyId, info.keyringId) == -1) {
        DUOLOG_FAILED("keyctl_unlink");
        KeyringCounters::of(keyringName).failureIs("keyctl_unlink", errno);
        return;
    }
    ++KeyringCounters::of(keyringName).unlinks;
}

void IntegrityKeyringSm::removeDuplicates(const IntegrityKey& key,
                                          const Orvo::String& keyringName) {
    DUOLOG(5, key.serial, ", ", keyringName);
    const Orvo::Ptr<IntegrityKeyColl> keyColl = integrityKeyringColl_->keyring(keyringName);
    if (!keyColl) {
        return;
    }
    // Also a record of the new key's own serial goes; the caller puts it back.
    for (auto known = keyColl->key().iterator(); known; ++known) {
        if (known->description == key.description) {
            const S32 serial = known->serial;
            DUOLOG(5, "Removing duplicate ", serial);
            clearKey(serial, keyringName);
        }
    }
}

} // namespace Vestrel
