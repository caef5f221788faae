#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The chapter of the service's story in which the kernel refuses programs: from its own line through
# the log daemon and the agent into the journal.

# shellcheck disable=SC2016,SC2034,SC2154
appraisalSteps=15
forwarding=$(find "$prefix/share/doc/vestrel-agent" -name 50-vestrel.conf)
socket=/run/IMAKernelMessages
everything=/var/log/syslog
sender=/guest/send-datagram
# shellcheck source=tests/kernel/guest/appraisal-lib.sh
. "$(dirname "$0")/appraisal-lib.sh"
# shellcheck source=tests/kernel/guest/appraisal-cases.sh
. "$(dirname "$0")/appraisal-cases.sh"

forwards() {
    run "cp $forwarding /etc/rsyslog.d/"
    run "rsyslogd -N1"
    run "systemctl restart rsyslog"
    check "the log daemon is active" isActive rsyslog
    run "ls -l $socket"
    socketBelongsToRoot
}

demands() {
    run "echo 0 >/proc/sys/kernel/printk_ratelimit"
    appraisalRules >"$work/rules"
    run "tee $policy <$work/rules"
    check "the kernel has the rule for programs" grep -q 'func=BPRM_CHECK.*fowner=1000' "$policy"
    check "and the one for files" grep -q 'func=FILE_CHECK.*fowner=1001' "$policy"
    mkdir /t
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

# What the shared cases are asked through here: the agent's messages come from the journal's follower.
restartRsyslog() {
    systemctl restart rsyslog
}

asMallory() {
    setpriv --reuid "$mallory" --regid "$mallory" --clear-groups sh -c "$1"
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
    run "echo $(toldOfStorm) told, $(leftOut) left out"
    check "a hundred were told" [ "$(toldOfStorm)" -ge 100 ]
    check "some were left out" [ "$(leftOut)" -gt 0 ]
}

matches() {
    vestrelctl --json status | grep -oE '"matches":[0-9]+' | cut -d : -f 2
}

matchedSince() {
    [ "$(($(matches) - $1))" = "$2" ]
}

toldOfStorm() {
    journalctl -q --no-pager -o cat -u "$unit" LOG_NAME=VESTREL_INTEGRITY "LOG_ARG_4=${0##*/}" | wc -l
}

leftOut() {
    journalctl -q --no-pager -o cat -u "$unit" -g '^VESTREL_INTEGRITY: [0-9]+ messages suppressed' |
        awk '{ count += $2 } END { print count + 0 }'
}

accounted() {
    [ "$(($(toldOfStorm) + $(leftOut)))" = "$1" ]
}

tellAppraisal() {
    tell forwards "rsyslog forwards the kernel's lines, as the installed example says"
    tell demands "From now on, the kernel wants signed programs of user 1000, and hashed files of user 1001"
    tell refuses "A program is refused: the journal has the message, its fields and its explanation"
    tell certifies "A certificate is installed, and the program that it vouches for runs"
    tell userCannotWrite "An ordinary user cannot write to the agent's socket"
    tell missingHash "A file without a hash: the journal has its message"
    tell invalidHash "A file that is not what was hashed"
    tell signatureRequired "A program that has a hash where it needs a signature"
    tell invalidSignature "A program that was changed after it was signed, and one that a stranger signed"
    tell hexNames "Names that the kernel writes as hex are no message"
    tell cutRecords "A record that the kernel cuts short is no message"
    tell otherRecords "Records of other kinds are no message"
    tell forgedLines "An ordinary user forges kernel lines: the log daemon does not forward them"
    tell looseFilter "The same lines get through where its filter asks for the facility alone"
    tell storms "A storm of refusals: what is left out is counted and reported"
}
