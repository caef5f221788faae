#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The chapters in which files and keys come and go while the agent follows them. They begin with
# alpha.der and beta.der in the directory of .ima, and with their keys in it.

# shellcheck shell=dash disable=SC2034,SC2154,SC3043
fileSteps=10
otherKeyringSteps=2

writeTemporary() {
    remember .ima
    run "cp $trust/gamma.der $keys/ima/gamma.der.integrity-tmp"
    await "the agent has seen the file and skipped it" skippedTemporary gamma.der.integrity-tmp
    run "grep -A 1 ') gamma.der.integrity-tmp' $agentLog | head -n 2"
    run "keyctl list %:.ima"
    check ".ima holds the very keys that it held before" isAsRemembered .ima
}

renameTemporary() {
    run "mv $keys/ima/gamma.der.integrity-tmp $keys/ima/gamma.der"
    await "gamma's key is in .ima" isIn .ima gamma
    run "keyctl list %:.ima"
    await "the kernel has told the agent of it" linkReported .ima gamma
}

rewriteFile() {
    check "beta's key is in .ima before" isIn .ima beta
    run "cat $trust/replacement.der >$keys/ima/beta.der"
    await "the new certificate's key is in .ima" isIn .ima replacement
    await "beta's key is there no more" isNotIn .ima beta
    run "keyctl list %:.ima"
}

moveAway() {
    check "gamma's key is in .ima before" isIn .ima gamma
    run "mv $keys/ima/gamma.der /tmp/"
    await "gamma's key is there no more" isNotIn .ima gamma
    run "keyctl list %:.ima"
}

layTwins() {
    local first
    run "cp $trust/twin-1.der $keys/ima/"
    await "the first file's key is in .ima" isIn .ima twin-1
    await "the kernel has told the agent of it" linkReported .ima twin-1
    first=$(serials .ima twin-1)
    run "keyctl list %:.ima"
    run "cp $trust/twin-2.der $keys/ima/"
    await "the second file's key stands in the place of the first's" oneKeyOtherThan .ima twin-2 "$first"
    await "the kernel has told the agent of it" linkReported .ima twin-2
    run "keyctl list %:.ima"
}

removeTwin() {
    remember .ima
    run "rm $keys/ima/twin-1.der"
    await "the agent has seen to it" roundEndedAfter "\"$keys/ima/twin-1.der\" has been deleted"
    run "keyctl list %:.ima"
    check "twin's key is in .ima" isIn .ima twin-2
    check ".ima holds the very keys that it held before" isAsRemembered .ima
}

removeOtherTwin() {
    check "twin's key is in .ima before" isIn .ima twin-2
    run "rm $keys/ima/twin-2.der"
    await "twin's key is there no more" isNotIn .ima twin-2
    run "keyctl list %:.ima"
}

linkByHand() {
    run "keyctl padd asymmetric '' %:.ima <$trust/leaf.der"
    byHand=$(cat "$work/output")
    run "keyctl list %:.ima"
    check "leaf's key is in .ima" isIn .ima leaf
    await "the kernel has told the agent of it" linkReported .ima leaf
    await "the agent has looked for older records of it" logged "removeDuplicates: $byHand, .ima"
    run "grep -w $byHand $agentLog"
}

linkAgain() {
    local older=$byHand
    run "keyctl padd asymmetric '' %:.ima <$trust/leaf.der"
    byHand=$(cat "$work/output")
    run "keyctl list %:.ima"
    check "one key of leaf is in .ima, and it is the new one" oneKeyOtherThan .ima leaf "$older"
    await "the kernel has told the agent of it" linkReported .ima leaf
    await "the agent had the older key on record, and forgets it" logged "Removing duplicate $older"
    run "grep -w $older $agentLog | tail -n 2"
}

unlinkByHand() {
    run "keyctl unlink $byHand %:.ima"
    run "keyctl list %:.ima"
    check "leaf's key is there no more" isNotIn .ima leaf
    await "the kernel has told the agent of it" logged "subType: unlinked, keyId: $byHand"
    await "the agent forgets the key" logged "clearKey: $byHand, .ima"
    run "grep -w $byHand $agentLog | tail -n 2"
}

followSecondary() {
    run "cp $trust/alpha.der $keys/secondary_trusted_keys/"
    await "alpha's key is in .secondary_trusted_keys" isIn .secondary_trusted_keys alpha
    await "the kernel has told the agent of it" linkReported .secondary_trusted_keys alpha
    run "keyctl list %:.secondary_trusted_keys"
    run "rm $keys/secondary_trusted_keys/alpha.der"
    await "after the removal it is not" isNotIn .secondary_trusted_keys alpha
    run "keyctl list %:.secondary_trusted_keys"
    check "alpha's key in .ima has stayed" isIn .ima alpha
}

refuseBuiltin() {
    local line
    line="Failed to load certificate $keys/builtin_trusted_keys/alpha.der in keyring (.builtin_trusted_keys)."
    remember .builtin_trusted_keys
    run "cp $trust/alpha.der $keys/builtin_trusted_keys/"
    await "the agent's log tells the operator" logged "VESTREL_INTEGRITY_LOAD_KEY_FAIL: $line Permission denied."
    run "grep -F 'alpha.der in keyring' $agentLog"
    run "keyctl list %:.builtin_trusted_keys"
    check ".builtin_trusted_keys holds the very keys that it held before" isAsRemembered .builtin_trusted_keys
}

tellFiles() {
    tell writeTemporary "A certificate is written under a temporary name: nothing happens"
    tell renameTemporary "It is renamed to its final name: its key appears"
    tell rewriteFile "A file is rewritten with another certificate: the new key comes, the old one goes"
    tell moveAway "A file is moved out of the directory: its key goes"
    tell layTwins "Two files carry the same description: there is one key"
    tell removeTwin "One of the two files is removed: the key stays"
    tell removeOtherTwin "The other one is removed: the key goes"
    tell linkByHand "A key is linked by hand: the agent records it"
    tell linkAgain "The same certificate is linked again: the agent keeps one record, the new one"
    tell unlinkByHand "It is unlinked by hand: the agent forgets it"
}

tellOtherKeyrings() {
    tell followSecondary "The keyring .secondary_trusted_keys follows its own directory"
    tell refuseBuiltin "The keyring .builtin_trusted_keys takes nothing at run time, and the operator is told"
}
