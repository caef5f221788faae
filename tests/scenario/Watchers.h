// SPDX-License-Identifier: Apache-2.0
// What the state machine holds of each watched keyring, compared with what the start-up makes.
#pragma once

#include "keyring/IntegrityKeyringSm.h"

#include <keyutils.h>

#include <functional>
#include <optional>
#include <string>

namespace Vestrel::Tests {

/// The kernel's serial of a keyring.
using SerialOf = std::function<key_serial_t(const std::string& keyring)>;

/// What is wrong with the watcher records, or with what their descriptors are and where they are
/// registered, or nothing. The directories have to stand.
std::optional<std::string> watcherDifference(const IntegrityKeyringSm& stateMachine,
                                             const SerialOf& serialOf);

} // namespace Vestrel::Tests
