#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The story of the installed agent as a confined service, on a whole system with its own service
# manager, journal and log daemon.
#
# VESTREL_COLOUR asks for colours.

# shellcheck disable=SC2034,SC2154,SC2317
# shellcheck source=tests/kernel/guest/service-lib.sh
. "$(dirname "$0")/service-lib.sh"
# shellcheck source=tests/kernel/guest/service-confined.sh
. "$(dirname "$0")/service-confined.sh"
# shellcheck source=tests/kernel/guest/service-keys.sh
. "$(dirname "$0")/service-keys.sh"
# shellcheck source=tests/kernel/guest/service-follow.sh
. "$(dirname "$0")/service-follow.sh"
# shellcheck source=tests/kernel/guest/service-appraisal.sh
. "$(dirname "$0")/service-appraisal.sh"
# shellcheck source=tests/kernel/guest/service-life.sh
. "$(dirname "$0")/service-life.sh"

stepsPlanned=$((1 + confinedSteps + keySteps + followSteps + appraisalSteps + lifeSteps))

showStart() {
    run "systemctl show -p Type -p ActiveState -p SubState -p UnitFileState -p NRestarts $unit"
    check "the service is active" is ActiveState active
    check "it is one that says itself when it is ready, and has said so" is Type notify
    check "it is started at every boot" is UnitFileState enabled
    check "it is the first process of its service" is NRestarts 0
    run "systemctl show -p Id -p InactiveExitTimestampMonotonic -p ActiveEnterTimestampMonotonic systemd-tmpfiles-setup.service $unit sysinit.target rsyslog.service"
    check "the certificate directories were there when it was started" enteredBefore \
        ActiveEnterTimestampMonotonic systemd-tmpfiles-setup.service InactiveExitTimestampMonotonic "$unit"
    check "it was ready before sysinit.target" enteredBefore \
        ActiveEnterTimestampMonotonic "$unit" ActiveEnterTimestampMonotonic sysinit.target
    check "and before the log daemon was started" enteredBefore \
        ActiveEnterTimestampMonotonic "$unit" InactiveExitTimestampMonotonic rsyslog.service
    run "vestrelctl status"
    check "vestrelctl finds nothing wrong" endsWith 0 vestrelctl status
    run "systemctl --failed --no-legend"
    check "no service of the system has failed" [ ! -s "$work/output" ]
}

tellAll() {
    say "The system has booted with the agent installed. Every \"#\" line is a command, and what"
    say "follows it is what the command printed. Key identifiers are cut to their first 12 digits."
    tell showStart "The agent is running, and was ready before the system came up"
    tellConfined
    tellKeys
    tellFollow
    tellAppraisal
    tellLife
    printf '\n%s%d of %d steps hold%s\n' "$bold" $stepsHold $stepsPlanned "$plain"
    [ "$stepsHold" -eq "$stepsPlanned" ]
}

tellAll
told=$?
journalctl --no-pager -o short-monotonic >/results/journal.txt
exit $told
