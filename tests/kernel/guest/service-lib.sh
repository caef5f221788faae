#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# What the service's story asks the service manager, the journal and the system for.

# shellcheck disable=SC2034,SC2154
# shellcheck source=tests/kernel/guest/story-lib.sh
. "$(dirname "$0")/story-lib.sh"

unit=vestrel-agent.service
agent=$(command -v vestrel-agent)
prefix=${agent%/sbin/*}
patience=30 # seconds: a start of the service takes its time on an emulated processor

agentsLastLines() {
    [ ! -s "$work/answer" ] || cat "$work/answer"
    journalctl --no-pager -o cat -n "$1" -u "$unit"
}

# WHAT COMMAND...: not worth a line unless it fails.
must() {
    local what=$1
    shift
    "$@" >"$work/answer" 2>&1 || failed "set-up: $what"
}

# --- the service manager's answers

property() {
    systemctl show -P "$1" "${2:-$unit}"
}

is() {
    [ "$(property "$1")" = "$2" ]
}

mainProcess() {
    property MainPID
}

# "now" in the clock of the properties of time: microseconds since the boot.
enteredBefore() {
    [ "$(property "$1" "$2")" -gt 0 ] && [ "$(property "$1" "$2")" -le "$(property "$3" "$4")" ]
}

# Both in one answer: another process than that one, and it is ready.
runsAnew() {
    local answer
    answer=$(systemctl show -P MainPID -P ActiveState "$unit" | paste -sd' ')
    [[ $answer = *' active' && $answer != "$1 "* ]]
}

isActive() {
    systemctl is-active -q "$1"
}

# Options of the service, as systemctl edit lays them down.
dropIn() {
    mkdir -p "/etc/systemd/system/$unit.d"
    printf '%s\n' "$2" >"/etc/systemd/system/$unit.d/$1.conf"
    run "cat /etc/systemd/system/$unit.d/$1.conf"
    run "systemctl daemon-reload"
    run "systemctl restart $unit"
}

# --- the journal's answers

messageId() {
    vestrelctl messages "$1" | grep -oE '\b[0-9a-f]{32}\b'
}

# A message of that name whose text ends with these words.
journalHas() {
    journalctl -q --no-pager -o cat -u "$unit" -g "^$1: " | awk -v end="$2" \
        'substr($0, length($0) - length(end) + 1) == end { found = 1 } END { exit !found }'
}

# How often the last message of that name stands in the journal with these fields.
journalField() {
    journalctl -q --no-pager -u "$unit" LOG_NAME="$1" -n 1 -o export --output-fields="$2" |
        sed -n "s/^$2=//p"
}

tracesSay() {
    journalctl -q --no-pager -o cat -u "$unit" | grep -qF -- "$1"
}

# --- vestrelctl's answers

ctlSays() {
    vestrelctl "$@" >"$work/answer" 2>&1
}

endsWith() {
    local expected=$1 status=0
    shift
    "$@" >"$work/answer" 2>&1 || status=$?
    [ $status -eq "$expected" ]
}
