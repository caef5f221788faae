#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The chapter of the story in which certificate files decide which programs run, and the agent tells
# the operator of those that do not.
#
#   . story-ima.sh       inside a story whose agent runs; tellAppraisal tells it, in $appraisalSteps
#   story-ima.sh         tells it alone
#
# Needs rsyslogd with imklog, omuxsock and lmnet, evmctl, and packaging/rsyslog as /guest-rsyslog.

# shellcheck shell=dash disable=SC2034,SC2119,SC2154,SC3043
appraisalSteps=6
socket=/var/run/IMAKernelMessages
policy=/sys/kernel/security/ima/policy

startSender() {
    run "grep -v '^#' /guest-rsyslog/50-vestrel.conf | grep ."
    { echo 'module(load="imklog")' && cat /guest-rsyslog/50-vestrel.conf; } >"$work/rsyslog.conf"
    run "rsyslogd -n -f $work/rsyslog.conf &"
    run "ls -l $socket"
    check "the agent's socket is a socket, and only root's" \
        [ "$(stat -c '%F %a %u' "$socket")" = "socket 600 0" ]
    await "rsyslogd reads the kernel's log" readsKernelLog
}

readsKernelLog() {
    find "/proc/$(pidof rsyslogd)/fd" -type l -exec readlink {} \; | grep -qx /proc/kmsg
}

# The kernel writes no more than 10 records in 5 seconds otherwise.
demandSignatures() {
    run "echo 0 >/proc/sys/kernel/printk_ratelimit"
    run "echo 'appraise func=BPRM_CHECK mask=MAY_EXEC fowner=1000 appraise_type=imasig' >$policy"
    run "cat $policy"
    check "the kernel has the policy" grep -q 'func=BPRM_CHECK.*fowner=1000' "$policy"
}

refuseUnsigned() {
    writeProgram plain
    refused plain IMA-signature-required
}

refuseUnknownKey() {
    check "leaf's key is not in .ima" isNotIn .ima leaf
    writeProgram signed
    run "evmctl ima_sign --key $trust/leaf.key $programs/signed >/dev/null 2>&1"
    refused signed invalid-signature
}

runSigned() {
    run "cp $trust/leaf.der $keys/ima/"
    await "leaf's key is in .ima" isIn .ima leaf
    await "the kernel has told the agent of it" linkReported .ima leaf
    run "keyctl list %:.ima"
    run "$programs/signed"
    check "the very program that was refused runs" [ "$(cat "$work/output")" = "signed runs" ]
}

refuseAgain() {
    run "rm $keys/ima/leaf.der"
    await "leaf's key is there no more" isNotIn .ima leaf
    run "keyctl list %:.ima"
    say "The kernel remembers the files that it has found good; a fresh one it has to look at."
    writeProgram fresh
    run "evmctl ima_sign --key $trust/leaf.key $programs/fresh >/dev/null 2>&1"
    refused fresh invalid-signature
    run "$programs/signed"
    run "chmod 0700 $programs/signed >/dev/null 2>&1"
    refused signed invalid-signature 2
}

# NAME CAUSE [TIMES]: does not run, and the operator is told so, for the TIMESth time.
refused() {
    local line
    line="VESTREL_INTEGRITY: Integrity error of type AUDIT_INTEGRITY_DATA ($2), for file $programs/$1, invoked by env"
    run "env $programs/$1 || true"
    check "the kernel does not run it" grep -q "Permission denied" "$work/output"
    await "the agent's log tells the operator" toldTimes "${3:-1}" "$line"
    run "dmesg | grep type=1800 | tail -n 1"
    run "grep ^VESTREL_INTEGRITY: $agentLog | tail -n 1"
}

toldTimes() {
    [ "$(grep -cFx "$2" "$agentLog")" -eq "$1" ]
}

tellAppraisal() {
    tell startSender "A log daemon forwards the kernel's lines to the agent's socket"
    tell demandSignatures "From now on, the kernel runs programs of user 1000 only when they are signed"
    tell refuseUnsigned "A program without a signature: the kernel refuses it, and the operator is told"
    tell refuseUnknownKey "A program signed by a key whose certificate is not loaded: refused, and told"
    tell runSigned "The certificate's file arrives, the agent loads it: the same program runs"
    tell refuseAgain "The certificate's file goes: its programs are refused again, and the operator is told"
}

tellAlone() {
    stepsPlanned=$((appraisalSteps + 1))
    startQuietly() {
        startAgent
        await "the agent says READY=1 to its service manager" announced READY=1
    }
    tell startQuietly "The agent starts"
    tellAppraisal
    [ "$stepsHold" -eq "$stepsPlanned" ]
}

if [ "${0##*/}" = story-ima.sh ]; then
    # shellcheck source=tests/kernel/guest/story-lib.sh
    . "$(dirname "$0")/story-lib.sh"
    tellAlone
fi
