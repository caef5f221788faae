// SPDX-License-Identifier: Apache-2.0
// Taking stock of one keyring at start-up. Private to the keyring state machine.
#pragma once

#include "keyring/IntegrityKeyringSm.h"
#include "platform/duolog/Duolog.h"

#include <cstddef>
#include <filesystem>
#include <set>

namespace Vestrel {

// Lives during one call of createWatcher(), in whose name it traces.
class KeyringStock {
public:
    KeyringStock(const Duolog::Operation& operation, IntegrityKeyringSm& stateMachine,
                 const Orvo::String& keyringName, const Orvo::Ptr<IntegrityKeyColl>& keyColl)
        : operation_(operation), stateMachine_(stateMachine), keyringName_(keyringName),
          keyColl_(keyColl) {}

    // Records every key that the keyring holds.
    void existingKeysRead(S32 keyringId);

    // Maps every certificate file of the keyring's directory and loads those whose key is missing.
    // Throws std::filesystem::filesystem_error when the directory cannot be read.
    void directoryScan();

private:
    static Zell::TraceHandle& traceHandle() { return IntegrityKeyringSm::traceHandle(); }

    void existingKey(S32 serial);
    void entryFound(const std::filesystem::directory_entry& entry);

    const Duolog::Operation& operation_;
    IntegrityKeyringSm& stateMachine_;
    const Orvo::String& keyringName_;
    const Orvo::Ptr<IntegrityKeyColl>& keyColl_;
    std::set<Orvo::String> existingDescriptions_;
};

} // namespace Vestrel
