#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The story of certificate files and kernel keys, told step by step with a real agent on a real kernel.
#
#   story.sh             tells it; succeeds when every step holds
#   story.sh --prompt    only starts the agent, and says what to try
#
# VESTREL_AGENT and VESTREL_CTL are the programs; VESTREL_COLOUR asks for colours.

# shellcheck shell=dash disable=SC3043 source=tests/kernel/guest/story-lib.sh
. "$(dirname "$0")/story-lib.sh"
# shellcheck source=tests/kernel/guest/story-ima.sh
. "$(dirname "$0")/story-ima.sh"

stepsPlanned=$((20 + appraisalSteps))

findKeyrings() {
    local keyring
    for keyring in .ima .secondary_trusted_keys .builtin_trusted_keys .machine; do
        run "keyctl id %:$keyring" && held "the kernel has the keyring $keyring"
    done
    run "keyctl list %:.builtin_trusted_keys"
    check "the test authority is in .builtin_trusted_keys" isIn .builtin_trusted_keys ca
}

layFiles() {
    run "mkdir -p $keys/ima"
    run "cp $trust/alpha.der $trust/beta.der $keys/ima/"
    run "keyctl list %:.ima"
    check "two certificate files, and no key" isEmpty .ima
}

start() {
    startAgent
    await "the agent says READY=1 to its service manager" announced READY=1
    run "cat $notifyLog"
    await "alpha's key is in .ima" isIn .ima alpha
    await "beta's key is in .ima" isIn .ima beta
    run "keyctl list %:.ima"
    await "the kernel has told the agent of alpha's key" linkReported .ima alpha
    await "and of beta's" linkReported .ima beta
}

showWatches() {
    local name
    run "grep -h inotify /proc/$agentProcess/fdinfo/*"
    for name in ima secondary_trusted_keys builtin_trusted_keys machine; do
        check "the directory $keys/$name is watched" watchesDirectory "$keys/$name"
    done
    run "ls -l /proc/$agentProcess/fd | grep -o 'pipe:.*' | sort | uniq -c"
    check "four notification pipes are held at both ends, one for each keyring" [ "$(wholePipes)" -ge 4 ]
}

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

# The operator's command, on a machine where nothing is wrong. The issuer's certificate is what the
# kernel does not show.
useCommand() {
    runEnding 4 "vestrelctl check .ima $trust/gamma.der"
    check "without the issuer's certificate the verdict is unknown" grep -q unverifiable-signature "$work/output"
    run "vestrelctl check --issuer $trust/ca.pem .ima $trust/gamma.der"
    check "with it, the certificate is accepted" grep -q 'gamma.der: accepted' "$work/output"
    run "vestrelctl install .ima $trust/gamma.der"
    check "gamma's key is in .ima" isIn .ima gamma
    run "vestrelctl files .ima"
    check "its file is in step with it" grep -q 'gamma.der.*in step' "$work/output"
    run "vestrelctl status | head -n 5"
    run "vestrelctl remove .ima gamma.der"
    check "gamma's key is there no more" isNotIn .ima gamma
}

refuseStranger() {
    local line
    line="Failed to load certificate $keys/ima/stranger.der in keyring (.ima). Required key not available."
    remember .ima
    run "cp $trust/stranger.der $keys/ima/"
    await "the agent's log tells the operator" logged "VESTREL_INTEGRITY_LOAD_KEY_FAIL: $line"
    await "and says why" explained stranger.der
    run "grep -F stranger.der $agentLog | grep ^VESTREL_"
    runEnding 3 "vestrelctl check .ima $keys/ima/stranger.der"
    run "keyctl list %:.ima"
    check "the stranger's key is not in .ima" isNotIn .ima stranger
    check ".ima holds the very keys that it held before" isAsRemembered .ima
}

clearByHand() {
    check "alpha's key is in .ima before" isIn .ima alpha
    run "keyctl clear %:.ima"
    run "keyctl list %:.ima"
    await "the agent notices, and tells the operator" saidOnce VESTREL_INTEGRITY_DRIFT
    await "alpha's key is in .ima again" isIn .ima alpha
    run "grep ^VESTREL_INTEGRITY_DRIFT: $agentLog"
    run "keyctl list %:.ima"
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

stop() {
    local agent=$agentProcess status closings
    check "the agent has run until now" isRunning "$agent"
    remember .ima
    closings=$(timesClosed)
    run "kill -TERM $agent"
    agentProcess='' # nothing that is awaited from here on needs it
    await "the agent ends" hasEnded "$agent"
    hasEnded "$agent" || kill -9 "$agent" 2>/dev/null
    wait "$agent"
    status=$?
    say "exit status $status"
    check "its exit status is 0" [ $status -eq 0 ]
    check "it said STOPPING=1 to its service manager" announced STOPPING=1
    check "it closed its descriptors itself, and no close failed" closedWithoutFailure $((closings + 1))
    check "no process holds a watch any more" nobodyWatches
    run "keyctl list %:.ima"
    check ".ima holds the very keys that it held before" isAsRemembered .ima
}

tellAll() {
    say "Every \"#\" line is a command, and what follows it is what the command printed. keyctl"
    say "prints what the kernel holds. Key identifiers are cut to their first 12 digits here."
    tell findKeyrings "The kernel has four keyrings for certificates, and trusts the test authority"
    tell layFiles "Two certificates lie in .ima's directory; nobody loads them yet"
    tell start "The agent starts, and loads the certificates that it finds"
    tell showWatches "The agent watches the four directories and the four keyrings"
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
    tell useCommand "The operator checks, installs and removes a certificate with vestrelctl"
    tell refuseStranger "A certificate that no trusted key signed is refused, and the operator is told"
    tell clearByHand "The keyring is cleared by hand, which the kernel does not announce key by key: all is put right"
    tell followSecondary "The keyring .secondary_trusted_keys follows its own directory"
    tell refuseBuiltin "The keyring .builtin_trusted_keys takes nothing at run time, and the operator is told"
    tellAppraisal
    tell stop "The agent is told to stop: it ends in order, and the keys stay"
    printf '\n%s%d of %d steps hold%s\n' "$bold" $stepsHold $stepsPlanned "$plain"
    [ $stepsHold -eq $stepsPlanned ]
}

givePrompt() {
    stepsPlanned=1
    mkdir -p "$keys/ima"
    cp "$trust/alpha.der" "$trust/beta.der" "$keys/ima/"
    startForPrompt() {
        startAgent setsid
        await "the agent says READY=1 to its service manager" announced READY=1
    }
    tell startForPrompt "The agent runs in a machine of its own"
    say "Certificates are in $trust, the agent's traces in $agentLog. Try:"
    say "  keyctl list %:.ima"
    say "  cp $trust/gamma.der $keys/ima/ && keyctl list %:.ima"
    say "  rm $keys/ima/gamma.der && keyctl list %:.ima"
    say "  keyctl padd asymmetric '' %:.ima <$trust/leaf.der && tail -n 20 $agentLog"
    say "  cp $trust/stranger.der $keys/ima/ && grep FAIL $agentLog"
    say "\"exit\" ends the machine."
    [ $stepsHold -eq 1 ]
}

case ${1:-} in
--prompt) givePrompt ;;
'') tellAll ;;
*)
    echo "usage: story.sh [--prompt]" >&2
    exit 2
    ;;
esac
