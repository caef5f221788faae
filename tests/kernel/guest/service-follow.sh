#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The chapter of the service's story in which files and keys come and go by other hands.

# shellcheck disable=SC2016,SC2034,SC2154
# shellcheck source=tests/kernel/guest/story-files.sh
. "$(dirname "$0")/story-files.sh"
followSteps=$((1 + fileSteps + otherKeyringSteps))

# What is asked of the agent's log elsewhere is asked of the journal here.
followsJournal() {
    journalctl -q -f -n 0 -o cat -u "$unit" >"$agentLog" &
    run "vestrelctl install .ima $trust/beta.der"
    await "alpha's key is in .ima" isIn .ima alpha
    await "and beta's" isIn .ima beta
    await "the journal's follower has the agent's traces" linkReported .ima beta
}

tellFollow() {
    tell followsJournal "The journal is followed while other hands change files and keys"
    tellFiles
    tellOtherKeyrings
    rm "$keys/builtin_trusted_keys/alpha.der" # or vestrelctl will speak of it for ever
}
