// SPDX-License-Identifier: Apache-2.0
// What differs between a keyring, its directory and what the state machine has on record of them.
#pragma once

#include "keyring/IntegrityKeyringSm.h"
#include "survey/KeyringSurvey.h"

#include <set>
#include <string>

namespace Vestrel {

// Each difference is one phrase, which stays the same as long as the difference does.
using Differences = std::set<std::string>;

// Legitimate states are none: a key without a file, a file that the kernel refused, a key that
// somebody unlinked, a temporary file. With `eventsWereLost` a refusal on record is not trusted:
// the file may have been replaced since. A change whose event was not handled yet is a difference,
// so handle what is waiting before, and believe what is still there a moment later.
Differences differences(const KeyringSurvey& survey, const IntegrityKeyringSm& stateMachine,
                        bool eventsWereLost);

// Catches up on the directory's changes whose events were lost: removals and new contents of files
// on record, with the state machine's own operations, which unlink the keys of what went. New
// files are left to the next start of the state machine.
void lostEventsMakeUpFor(const KeyringSurvey& survey, IntegrityKeyringSm& stateMachine);

// The first of them, and how many more there are.
std::string summary(const Differences& differences);

} // namespace Vestrel
