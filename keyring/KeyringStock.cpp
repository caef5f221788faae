// SPDX-License-Identifier: Apache-2.0
// The keys that a keyring holds at start-up, and the files of its directory.
#include "keyring/KeyringStock.h"

#include "keymodel/IntegrityConstants.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>

namespace Vestrel {

namespace fs = std::filesystem;

void KeyringStock::existingKeysRead(S32 keyringId) {
    void* buffer = nullptr;
    const int bytes = keyctl_read_alloc(keyringId, &buffer);
    if (bytes == -1) {
        DUOLOG_FAILED_IN(operation_, "keyctl_read_alloc");
        return;
    }
    const std::unique_ptr<void, decltype(&std::free)> holder(buffer, &std::free);
    const std::size_t count = static_cast<std::size_t>(bytes) >> 2; // trailing bytes are ignored
    DUOLOG_IN(operation_, 5, "keyctl_read_alloc:", bytes, " bytes");
    DUOLOG_IN(operation_, 5, "Found ", count, " existing keys");
    for (std::size_t i = 0; i < count; ++i) {
        S32 serial = 0;
        std::memcpy(&serial, static_cast<const char*>(buffer) + i * sizeof(serial), sizeof(serial));
        existingKey(serial);
    }
}

void KeyringStock::existingKey(S32 serial) {
    DUOLOG_IN(operation_, 5, "Processing existing key ", serial);
    const IntegrityKey noKey;
    const IntegrityKey key = stateMachine_.getKey(serial, keyringName_);
    if (IntegrityKey::isEq(&key, &noKey)) {
        return;
    }
    DUOLOG_IN(operation_, 5, "Creating key ", key);
    keyColl_->keyIs(key);
    existingDescriptions_.insert(key.description);
}

void KeyringStock::directoryScan() {
    const Orvo::String directory = IntegrityConstants().keyringPathPrefix(keyringName_);
    std::error_code unreadable;
    if (!fs::is_directory(fs::status(directory.view(), unreadable))) {
        return;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(directory.view())) {
        entryFound(entry);
    }
}

void KeyringStock::entryFound(const fs::directory_entry& entry) {
    std::error_code unreadable;
    if (!entry.is_regular_file(unreadable)) { // asks only where the directory did not tell
        return;
    }
    const Orvo::String filePath(entry.path().native());
    const Orvo::String description = stateMachine_.keyLoader()->getCertDescription(filePath);
    if (description.empty()) {
        return;
    }
    keyColl_->descriptionToFileIs(description)->filePathIs(filePath);
    keyColl_->fileToDescriptionIs(filePath, description);
    if (existingDescriptions_.contains(description)) {
        return;
    }
    DUOLOG_IN(operation_, 5, "Loading key ", filePath, " as it was not in the keyring");
    stateMachine_.loadFile(keyringName_, filePath);
}

} // namespace Vestrel
