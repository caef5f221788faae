#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The chapter of the service's story in which the kernel refuses programs: from its own line through
# the log daemon and the agent into the journal.

# shellcheck disable=SC2016,SC2034,SC2154
appraisalSteps=5
example=$(find "$prefix/share/doc/vestrel-agent" -name 50-vestrel.conf)
programs=/srv/programs
policy=/sys/kernel/security/ima/policy

forwards() {
    run "cp $example /etc/rsyslog.d/"
    run "rsyslogd -N1"
    run "systemctl restart rsyslog"
    check "the log daemon is active" isActive rsyslog
    run "ls -l /run/IMAKernelMessages"
    check "the agent's socket is a socket, and only root's" \
        [ "$(stat -c '%F %a %u' /run/IMAKernelMessages)" = "socket 600 0" ]
}

demands() {
    run "echo 0 >/proc/sys/kernel/printk_ratelimit"
    run "echo 'appraise func=BPRM_CHECK mask=MAY_EXEC fowner=1000 appraise_type=imasig' >$policy"
    check "the kernel has the policy" grep -q 'func=BPRM_CHECK.*fowner=1000' "$policy"
}

writeProgram() {
    mkdir -p "$programs"
    printf '#!/bin/sh\necho "%s runs"\n' "$1" >"$programs/$1"
    chmod 0755 "$programs/$1"
    run "chown 1000 $programs/$1"
}

isRefused() {
    ! "$@" >"$work/answer" 2>&1 && grep -q "Permission denied" "$work/answer"
}

messageSays() {
    [ "$(journalField VESTREL_INTEGRITY "$1")" = "$2" ]
}

refuses() {
    writeProgram plain
    run "env $programs/plain || true"
    check "the kernel does not run it" isRefused env "$programs/plain"
    await "the journal has the agent's message" journalHas VESTREL_INTEGRITY \
        "Integrity error of type AUDIT_INTEGRITY_DATA (IMA-signature-required), for file $programs/plain, invoked by env"
    run "journalctl -q --no-pager -k -g op=appraise_data -o cat -n 1"
    check "which the kernel's line in the journal agrees with" grep -q "name=\"$programs/plain\"" "$work/output"
    run "journalctl -q --no-pager -u $unit LOG_NAME=VESTREL_INTEGRITY -n 1 -o json --output-fields=MESSAGE_ID,PRIORITY,LOG_NAME,LOG_ARG_1,LOG_ARG_2,LOG_ARG_3,LOG_ARG_4"
    check "its type is a field" messageSays LOG_ARG_1 AUDIT_INTEGRITY_DATA
    check "the cause" messageSays LOG_ARG_2 IMA-signature-required
    check "the file" messageSays LOG_ARG_3 "$programs/plain"
    check "the command" messageSays LOG_ARG_4 env
    check "it is a warning" messageSays PRIORITY 4
    check "its identifier is the one that vestrelctl names" \
        messageSays MESSAGE_ID "$(messageId VESTREL_INTEGRITY)"
    check "and nobody else's messages have it" [ "$(identifierFinds)" = 1 ]
    run "journalctl -q --no-pager -x -n 1 MESSAGE_ID=$(messageId VESTREL_INTEGRITY)"
    check "journalctl -x has the explanation" grep -q 'Integrity Measurement Architecture (IMA)' "$work/output"
    check "and the recommended action" grep -q 'Contact support if the condition persists' "$work/output"
}

identifierFinds() {
    journalctl -q --no-pager -o cat "MESSAGE_ID=$(messageId VESTREL_INTEGRITY)" --output-fields=LOG_NAME |
        sort -u | wc -l
}

# The road through both state machines: the certificate decides whether the program runs.
certifies() {
    writeProgram signed
    run "evmctl ima_sign --key $trust/leaf.key $programs/signed >/dev/null 2>&1"
    check "signed by a key that is not in .ima, it does not run" isRefused env "$programs/signed"
    await "the journal says so" messageSays LOG_ARG_2 invalid-signature
    run "vestrelctl install .ima $trust/leaf.der"
    run "$programs/signed"
    check "with the certificate installed, it runs" [ "$(cat "$work/output")" = "signed runs" ]
}

# More than the agent lets pass in ten seconds. None may be lost without being counted. The log daemon
# stands still meanwhile, so that the lines come at once however slow the machine is. This shell itself
# calls the program, so its messages are told from the others.
storms() {
    local refusals=200 before
    before=$(matches)
    run "systemctl kill -s STOP rsyslog"
    run "for i in \$(seq $refusals); do $programs/plain; done 2>/dev/null || true"
    run "systemctl kill -s CONT rsyslog"
    await "the agent has had the kernel's line of each" matchedSince "$before" "$refusals"
    await "those that were told and those reported as left out are all" accounted "$refusals"
    run "journalctl -q --no-pager -o cat -u $unit -g 'messages suppressed' -n 3"
    run "echo $(told) told, $(leftOut) left out"
    check "a hundred were told" [ "$(told)" -ge 100 ]
    check "some were left out" [ "$(leftOut)" -gt 0 ]
}

matches() {
    vestrelctl --json status | grep -oE '"matches":[0-9]+' | cut -d : -f 2
}

matchedSince() {
    [ "$(($(matches) - $1))" = "$2" ]
}

told() {
    journalctl -q --no-pager -o cat -u "$unit" LOG_NAME=VESTREL_INTEGRITY "LOG_ARG_4=${0##*/}" | wc -l
}

leftOut() {
    journalctl -q --no-pager -o cat -u "$unit" -g '^VESTREL_INTEGRITY: [0-9]+ messages suppressed' |
        awk '{ count += $2 } END { print count + 0 }'
}

accounted() {
    [ "$(($(told) + $(leftOut)))" = "$1" ]
}

tellAppraisal() {
    tell forwards "rsyslog forwards the kernel's lines, as the installed example says"
    tell demands "From now on, the kernel runs programs of user 1000 only when they are signed"
    tell refuses "A program is refused: the journal has the message, its fields and its explanation"
    tell certifies "A certificate is installed, and the program that it vouches for runs"
    tell storms "A storm of refusals: what is left out is counted and reported"
}
