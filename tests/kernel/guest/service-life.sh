#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The last chapter of the service's story: the agent is killed, stands still, is stopped and goes.

# shellcheck disable=SC2016,SC2034,SC2154
lifeSteps=5
if dpkg-query -W vestrel-agent >/dev/null 2>&1; then lifeSteps=6; fi
initScript=/etc/init.d/vestrel-agent
pidFile=/run/vestrel-agent.pid

# While the agent stands still, a file comes: whoever follows it has to find that out.
killed() {
    local process
    process=$(mainProcess)
    run "kill -STOP $process"
    run "cp $trust/gamma.der $keys/ima/"
    check "nobody has loaded gamma" isNotIn .ima gamma
    run "kill -KILL $process"
    await "the service manager starts another one" runsAnew "$process"
    startedAgain 1
    await "gamma's key is in .ima" isIn .ima gamma
    await "nothing is wrong" endsWith 0 vestrelctl status
}

startedAgain() {
    run "systemctl show -p Result -p NRestarts -p ActiveState $unit"
    check "that is start $1 after a failure" is NRestarts "$1"
}

# A file that leaves, comes back and is deleted between two readings: see ARCHITECTURE.md, "Deliberate
# limits".
aborted() {
    local process before
    process=$(mainProcess)
    before=$(serials .ima alpha)
    run "kill -STOP $process"
    run "mv $keys/ima/gamma.der $keys/"
    run "mv $keys/gamma.der $keys/ima/"
    run "rm $keys/ima/gamma.der"
    run "kill -CONT $process"
    await "the service manager starts another one" runsAnew "$process"
    startedAgain 2
    check "the agent has said which invariant broke" tracesSay "removeFile: assertion failed: oldDesc"
    check "and has ended itself" managerSays "status=6/ABRT"
    check "alpha's key is the very one that it was" [ "$(serials .ima alpha)" = "$before" ]
    check "gamma's is gone with its file" isNotIn .ima gamma
    await "nothing is wrong" endsWith 0 vestrelctl status
}

standsStill() {
    local process
    dropIn watchdog "[Service]
WatchdogSec=2s"
    process=$(mainProcess)
    check "the agent has 2 seconds to show that its loop turns" is WatchdogUSec 2s
    sleep 5
    check "it has shown it" is MainPID "$process"
    run "kill -STOP $process"
    await "the service manager ends it and starts another one" runsAnew "$process"
    startedAgain 1
    check "because of the watchdog" managerSays "Failed with result 'watchdog'"
    await "nothing is wrong" endsWith 0 vestrelctl status
}

managerSays() {
    journalctl -q --no-pager -o cat -u "$unit" | grep -qF -- "$1"
}

stopped() {
    remember .ima
    run "systemctl stop $unit"
    run "systemctl show -p ActiveState -p Result -p ExecMainCode -p ExecMainStatus $unit"
    check "it is not active" is ActiveState inactive
    check "it has ended itself" is ExecMainCode 1
    check "with exit status 0" is ExecMainStatus 0
    check "which is a success to the service manager" is Result success
    check "its sockets are gone" noneExists /run/vestrel /run/IMAKernelMessages
    check ".ima holds the very keys that it held before" isAsRemembered .ima
    run "vestrelctl status || [ \$? = 6 ]"
    check "vestrelctl says that there is no agent" grep -q 'no agent' "$work/output"
}

noneExists() {
    [ ! -e "$1" ] && [ ! -e "$2" ]
}

# What README.md has for systems without systemd; a build is not installed where that expects it.
startedByScript() {
    sed "s,/usr/sbin/vestrel-agent,$agent," /guest/init-script >"$initScript"
    chmod 0755 "$initScript"
    run "$initScript start && [ -S /run/vestrel/agent.sock ]" # at once: vestrelctl itself takes a moment
    check "when that has ended, the agent is ready" endsWith 0 vestrelctl status
    check "it is no service" is ActiveState inactive
    check "its process is on record" [ "/proc/$(cat $pidFile)/exe" -ef "$agent" ]
    unlinkAlpha
    run "$initScript reload"
    await "after a reload alpha's key is back" isIn .ima alpha
    await "nothing is wrong" endsWith 0 vestrelctl status
    remember .ima
    run "$initScript stop"
    check "it has ended in order: its sockets are gone" noneExists /run/vestrel/agent.sock /run/IMAKernelMessages
    check "and the record of its process" [ ! -e $pidFile ]
    check ".ima holds the very keys that it held before" isAsRemembered .ima
    runEnding 2 "$initScript"
    rm -r "$initScript" /run/vestrel
}

purged() {
    run "systemctl start $unit"
    dpkg -L vestrel-agent libvestrelsm1 | sort -u >"$work/files"
    remember .ima
    run "dpkg --purge vestrel-agent libvestrelsm1"
    check "the service has ended" is ActiveState inactive
    check "the service manager knows it no more" is LoadState not-found
    check "no file of the packages is left" nothingLeft
    check "nothing else of that name is left" nothingNamed
    check "the operator's certificates are left to the operator" [ -e "$keys/ima/alpha.der" ]
    check "and .ima holds the very keys that it held before" isAsRemembered .ima
}

nothingLeft() {
    local file
    while IFS= read -r file; do
        [ -d "$file" ] || [ ! -e "$file" ] || echo "$file"
    done <"$work/files" >"$work/left"
    [ ! -s "$work/left" ] || { cat "$work/left" >>"$work/verdicts" && false; }
}

# The operator's own files are left out: what was laid down by "systemctl edit", and the rsyslog part.
nothingNamed() {
    find /etc /usr /var/lib /run -xdev -name '*vestrel*' -not -path '*/vestrel-guest*' \
        -not -path "/etc/systemd/system/$unit.d*" -not -path '/etc/rsyslog.d/*' \
        -not -path '/run/systemd/*' -not -path '/sys/*' >"$work/left"
    [ ! -s "$work/left" ] || { cat "$work/left" >>"$work/verdicts" && false; }
}

tellLife() {
    tell killed "The agent is killed: another one is started, and catches up"
    tell aborted "It ends by a broken invariant: another one is started"
    tell standsStill "Its loop stands still: the watchdog has it replaced"
    tell stopped "It is stopped: it ends in order, and the keys stay"
    tell startedByScript "Without the service manager: the init script of README.md starts and stops it"
    if [ $lifeSteps -eq 6 ]; then
        tell purged "The packages are purged: nothing of them is left"
    fi
}
