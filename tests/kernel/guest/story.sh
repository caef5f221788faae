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
# shellcheck source=tests/kernel/guest/story-files.sh
. "$(dirname "$0")/story-files.sh"

stepsPlanned=$((8 + fileSteps + otherKeyringSteps + appraisalSteps))

findKeyrings() {
    local keyring
    for keyring in .ima .secondary_trusted_keys .builtin_trusted_keys .machine; do
        run "keyctl id %:$keyring" && held "the kernel has the keyring $keyring"
    done
    run "keyctl list %:.builtin_trusted_keys"
    check "the test authority is in .builtin_trusted_keys" isIn .builtin_trusted_keys ca
    run "keyctl list %:.blacklist"
    check "the kernel shows whom it rejects: nobody" isEmpty .blacklist
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
    tellFiles
    tell useCommand "The operator checks, installs and removes a certificate with vestrelctl"
    tell refuseStranger "A certificate that no trusted key signed is refused, and the operator is told"
    tell clearByHand "The keyring is cleared by hand, which the kernel does not announce key by key: all is put right"
    tellOtherKeyrings
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
