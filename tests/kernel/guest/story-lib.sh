# SPDX-License-Identifier: Apache-2.0
# What the story is told with: steps, commands shown as they run, and questions to kernel and agent.
# The story sets stepsPlanned.

# shellcheck shell=dash disable=SC2034,SC2154,SC3043
keys=/etc/keys
trust=${VESTREL_TRUST:?}
agentLog=/results/agent.log
notifyLog=/results/notify.log
commandLog=/results/commands.log
programs=/srv/programs # those that the kernel appraises
patience=10 # seconds
work=$(mktemp -d /tmp/story.XXXXXX)
agentProcess=''
stepsTold=0
stepsHold=0

if [ -n "${VESTREL_COLOUR:-}" ]; then
    bold=$(printf '\033[1m') blue=$(printf '\033[36m') green=$(printf '\033[32m')
    red=$(printf '\033[1;31m') plain=$(printf '\033[0m')
else
    bold='' blue='' green='' red='' plain=''
fi

# --- telling

say() {
    echo "$*" | fold -s -w 91 | sed 's/^/       /'
}

# One step: a function that runs commands, waits and checks. What it found out is told at its end, so
# that the reader sees the kernel's state before the judgement.
tell() {
    stepsTold=$((stepsTold + 1))
    : >"$work/verdicts"
    printf '\n%s%2d/%d  %s%s\n' "$bold" "$stepsTold" "$stepsPlanned" "$2" "$plain"
    "$1"
    [ -s "$work/verdicts" ] || failed "the step checks something"
    if [ -n "$agentProcess" ] && hasEnded "$agentProcess"; then
        failed "the agent still runs"
    fi
    cat "$work/verdicts"
    if ! grep -q FAILED "$work/verdicts"; then
        stepsHold=$((stepsHold + 1))
    else
        say "The agent's last lines:"
        agentsLastLines 12 | shown
    fi
}

held() {
    printf '       %sOK%s: %s\n' "$green" "$plain" "$1" >>"$work/verdicts"
}

failed() {
    printf '       %sFAILED%s: expected: %s\n' "$red" "$plain" "$1" >>"$work/verdicts"
}

# Key identifiers have 40 digits; 12 keep a line of keyctl within the terminal.
shown() {
    sed -E 's/([0-9a-f]{12})[0-9a-f]{28}/\1../g' | fold -s -w 89 | sed 's/^/         /; s/ *$//'
}

# What is shown is what runs.
run() {
    runEnding 0 "$1"
}

# STATUS COMMAND: it has to end with that status.
runEnding() {
    local wanted=$1 status
    shift
    printf '       %s# %s%s\n' "$blue" "$1" "$plain"
    eval "$1" >"$work/output" 2>&1 </dev/null
    status=$?
    shown <"$work/output"
    { printf '# %s\n' "$1" && cat "$work/output"; } >>"$commandLog"
    [ $status -eq "$wanted" ] && return
    failed "exit status $wanted, not $status, of: $1"
    return 1
}

check() {
    local expected=$1
    shift
    if "$@"; then held "$expected"; else failed "$expected"; fi
}

# Asks in short steps until the answer is yes.
await() {
    local expected=$1 end
    shift
    end=$(($(uptimeSeconds) + patience))
    until "$@"; do
        if [ -n "$agentProcess" ] && hasEnded "$agentProcess"; then
            "$@" && break # it may have been the agent's last deed
            failed "$expected (the agent has ended)"
            return 1
        elif [ "$(uptimeSeconds)" -gt $end ]; then
            failed "$expected (not within $patience s)"
            return 1
        fi
        sleep 0.02
    done
    held "$expected"
}

uptimeSeconds() {
    local seconds
    read -r seconds _ </proc/uptime
    echo "${seconds%.*}"
}

# --- the kernel's answers

# The serials of the keys of one description; fails when the keyring cannot be read.
serials() {
    keyctl list "%:$1" >"$work/list" 2>&1 || return 1
    awk -F: -v description="asymmetric: $(cat "$trust/$2.description")" \
        'substr($0, length($0) - length(description) + 1) == description { print $1 + 0 }' "$work/list"
}

isIn() {
    [ -n "$(serials "$1" "$2")" ]
}

isNotIn() {
    local found
    found=$(serials "$1" "$2") && [ -z "$found" ]
}

isEmpty() {
    [ "$(keyctl list "%:$1")" = "keyring is empty" ]
}

oneKeyOtherThan() {
    local found
    found=$(serials "$1" "$2") && [ -n "$found" ] && [ "$(echo "$found" | wc -l)" -eq 1 ] && [ "$found" != "$3" ]
}

remember() {
    keyctl list "%:$1" >"$work/remembered$1" 2>&1
}

isAsRemembered() {
    keyctl list "%:$1" >"$work/now" 2>&1 && cmp -s "$work/now" "$work/remembered$1"
}

watchesDirectory() {
    local inode
    inode=$(printf '%x' "$(stat -c %i "$1")") && grep -qs "^inotify .* ino:$inode " "/proc/$agentProcess/fdinfo/"*
}

# A keyring's watch lives as long as both ends of its pipe.
wholePipes() {
    find "/proc/$agentProcess/fd" -type l -exec readlink {} \; | grep '^pipe:' | sort | uniq -c | awk '$1 >= 2' | wc -l
}

# --- what the kernel appraises

writeProgram() {
    mkdir -p "$programs"
    printf '#!/bin/sh\necho "%s runs"\n' "$1" >"$programs/$1"
    chmod 0755 "$programs/$1"
    run "chown 1000 $programs/$1"
}

# --- the agent's answers

agentsLastLines() {
    [ ! -e "$agentLog" ] || tail -n "$1" "$agentLog"
}

# The datagrams for a service manager end in a file: syslogd writes down what comes to its socket.
# The prompt's agent is started with "setsid", out of reach of the terminal's interrupts.
startAgent() {
    [ -e /usr/sbin/vestrel-agent ] || ln -s "${VESTREL_AGENT:?}" /usr/sbin/vestrel-agent
    [ -e /usr/sbin/vestrelctl ] || ln -s "${VESTREL_CTL:?}" /usr/sbin/vestrelctl
    syslogd -S -O "$notifyLog"
    await "a socket for the service manager's notices is there" [ -S /dev/log ]
    run "NOTIFY_SOCKET=/dev/log ${1:+$1 }vestrel-agent --trace 5 --log stderr >$agentLog 2>&1 &"
    agentProcess=$!
}

hasEnded() {
    local state=''
    { read -r _ _ state _ <"/proc/$1/stat"; } 2>/dev/null
    [ "${state:-Z}" = Z ]
}

isRunning() {
    [ -n "$1" ] && ! hasEnded "$1"
}

announced() {
    grep -qs " $1\$" "$notifyLog"
}

# A line that ends with these words.
logged() {
    awk -v end="$1" 'substr($0, length($0) - length(end) + 1) == end { found = 1 }
        END { exit !found }' "$agentLog"
}

timesClosed() {
    grep -c ' 5 closeAllFd: $' "$agentLog"
}

# As often by now.
closedWithoutFailure() {
    [ "$(timesClosed)" -eq "$1" ] && ! grep -qF "1 closeAllFd: " "$agentLog"
}

explained() {
    grep -q "^VESTREL_INTEGRITY_LOAD_KEY_EXPLANATION: Certificate .*/$1 for keyring" "$agentLog"
}

saidOnce() {
    [ "$(grep -c "^$1: " "$agentLog")" -eq 1 ]
}

nobodyWatches() {
    ! grep -qs "^inotify " /proc/[0-9]*/fdinfo/*
}

# The agent knows of a key once the kernel's notification has reached it; before, it would unlink nothing.
linkReported() {
    local serial
    serial=$(serials "$1" "$2") && [ -n "$serial" ] && logged "subType: linked, keyId: $serial"
}

# The words that a file's change is traced with, and then the end of that round of reading.
roundEndedAfter() {
    awk -v words="$1" 'index($0, words) { seen = 1 }
        seen && /handleInotify: No more to read/ { ended = 1 }
        END { exit !ended }' "$agentLog"
}

skippedTemporary() {
    grep -F -A 1 -- ") $1" "$agentLog" | grep -q 'handleInotify: Skipping temporary file'
}
