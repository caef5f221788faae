#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The chapter of the service's story in which an operator keeps keyrings with vestrelctl.

# shellcheck disable=SC2016,SC2034,SC2154
keySteps=8

installs() {
    run "vestrelctl check --issuer $trust/ca.pem .ima $trust/alpha.der"
    check "vestrelctl says that the kernel will take it" grep -q 'alpha.der: accepted' "$work/output"
    run "vestrelctl install .ima $trust/alpha.der $trust/beta.der"
    check "both are loaded" [ "$(grep -c ': loaded' "$work/output")" = 2 ]
    run "keyctl list %:.ima"
    check "alpha's key is in .ima" isIn .ima alpha
    check "and beta's" isIn .ima beta
    run "grep asymmetri /proc/keys | grep -c ."
    check "the kernel lists alpha's key" grep -qF "$(cut -c 1-30 "$trust/alpha.description")" /proc/keys
}

looks() {
    run "vestrelctl keys .ima"
    check "alpha's key is in step with its file" grep -qE 'alpha\.der.*in step|in step.*alpha\.der' "$work/output"
    run "vestrelctl files .ima"
    check "beta's file is in step with its key" grep -qE 'beta\.der.*in step|in step.*beta\.der' "$work/output"
    run "vestrelctl plan"
    check "a start would find alpha's key there" grep -qE 'map.*alpha\.der|alpha\.der.*map' "$work/output"
    run "vestrelctl --json status | cut -c 1-200"
    check "nothing is wrong" endsWith 0 vestrelctl --json status
    run "vestrelctl messages VESTREL_INTEGRITY"
    check "it explains the message of a refused program" grep -q 'Integrity error of type' "$work/output"
}

# Traces go to the journal when the operator has asked for them.
traces() {
    dropIn trace "[Service]
ExecStart=
ExecStart=$agent --trace 5"
    check "the service is active with its new options" is ActiveState active
    run "vestrelctl trace | tail -n 3"
    check "vestrelctl shows what the agent did last" grep -q '[a-z]' "$work/output"
    await "the journal has the agent's traces" tracesSay "createKeyringWatch: .machine assigned watchId"
}

# late is signed by leaf, whose certificate is nowhere yet. With .secondary_trusted_keys that can be mended.
mends() {
    local identifier
    issue-cert "$trust/leaf" "$trust/gamma.key" /O=Vestrel/CN=late "$trust/late" 2>"$work/answer"
    identifier=$(sed 's/.*: //' "$trust/leaf.description")
    run "vestrelctl check .secondary_trusted_keys $trust/late.der || [ \$? = 3 ]"
    check "the refusal names the reason" grep -q 'no-trusted-issuer' "$work/output"
    check "the issuer" grep -q '"Vestrel: leaf"' "$work/output"
    check "its key" grep -q "$identifier" "$work/output"
    check "and where it is missing" grep -q 'is not in .secondary_trusted_keys' "$work/output"
    run "vestrelctl install .secondary_trusted_keys $trust/late.der || [ \$? = 3 ]"
    check "nothing was installed" [ ! -e "$keys/secondary_trusted_keys/late.der" ]
    run "vestrelctl install .secondary_trusted_keys $trust/leaf.der"
    run "vestrelctl check .secondary_trusted_keys $trust/late.der"
    check "with the issuer there, it is accepted" grep -q 'late.der: accepted' "$work/output"
    run "vestrelctl install .secondary_trusted_keys $trust/late.der"
    check "and installed" grep -q ': loaded' "$work/output"
    check "its key is in the keyring" isIn .secondary_trusted_keys late
}

explains() {
    local line
    line="Failed to load certificate $keys/ima/stranger.der in keyring (.ima). Required key not available."
    run "cp $trust/stranger.der $keys/ima/"
    await "the journal tells of the refusal" journalHas VESTREL_INTEGRITY_LOAD_KEY_FAIL "$line"
    await "and explains it" journalHas VESTREL_INTEGRITY_LOAD_KEY_EXPLANATION "is not in .builtin_trusted_keys."
    run "journalctl -q --no-pager -x -u $unit LOG_NAME=VESTREL_INTEGRITY_LOAD_KEY_FAIL"
    check "journalctl -x has the explanation" grep -q 'The certificate could not be loaded in the keyring' "$work/output"
    check "and the recommended action" grep -q 'Contact support if the condition persists' "$work/output"
    run "vestrelctl status || [ \$? = 6 ]"
    check "vestrelctl names the file that has no key" grep -q 'stranger.der' "$work/output"
    run "vestrelctl remove .ima stranger.der"
    check "without it, nothing is wrong" endsWith 0 vestrelctl status
}

removes() {
    check "beta's key is in .ima before" isIn .ima beta
    run "vestrelctl remove .ima beta.der"
    check "its key was unlinked" grep -q 'unlinked' "$work/output"
    check "it is in .ima no more" isNotIn .ima beta
    check "alpha's has stayed" isIn .ima alpha
}

# The kernel gives no event for each key of a keyring that is cleared.
clears() {
    run "keyctl clear %:.ima"
    await "the agent finds out, and says so" journalMentions VESTREL_INTEGRITY_DRIFT
    run "journalctl -q --no-pager -o cat -u $unit LOG_NAME=VESTREL_INTEGRITY_DRIFT"
    await "alpha's key is back" isIn .ima alpha
    await "nothing is wrong" endsWith 0 vestrelctl status
}

journalMentions() {
    journalctl -q --no-pager -o cat -u "$unit" LOG_NAME="$1" | grep -q .
}

# A key that somebody takes out is no drift: who did it may want it so.
reloads() {
    local process
    process=$(mainProcess)
    unlinkAlpha
    run "systemctl reload $unit"
    await "after a reload alpha's key is back" isIn .ima alpha
    await "nothing is wrong" endsWith 0 vestrelctl status
    check "it is the very same process" is MainPID "$process"
    unlinkAlpha
    run "vestrelctl resync"
    await "vestrelctl resync brings it back as well" isIn .ima alpha
}

unlinkAlpha() {
    run "keyctl unlink $(serials .ima alpha) %:.ima"
    check "alpha's key is not in .ima" isNotIn .ima alpha
    await "vestrelctl names the file without a key" missesKeyOf alpha.der
}

missesKeyOf() {
    endsWith 6 vestrelctl status && grep -q "$1 has no key" "$work/answer"
}

tellKeys() {
    tell installs "Certificates are installed with vestrelctl, and their keys are in the kernel"
    tell looks "vestrelctl shows keys, files, plans and the meaning of messages"
    tell traces "The service gets an option by a drop-in, and traces go to the journal"
    tell mends "A refused certificate is understood and mended with vestrelctl alone"
    tell explains "A file that somebody copied is refused, and the journal explains it"
    tell removes "A certificate is removed with vestrelctl, and its key is unlinked"
    tell clears "A keyring is cleared by hand: the agent notices, and rebuilds it"
    tell reloads "A key is unlinked by hand: systemctl reload and vestrelctl resync bring it back"
}
