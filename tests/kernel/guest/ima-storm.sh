#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The cases of very many datagrams: all are read, few are told, and the keyrings are served meanwhile.

# shellcheck shell=dash disable=SC2016,SC2317,SC3043,SC2154

stormSize=100000
otherLine="kernel: [   42.767325][   T10] usb 1-1: new high-speed USB device number 2 using xhci_hcd"

# Both count in the agent's log from the storm's begin on.
stormTold() { sinceBegin | grep -cF "for file /t/$1, invoked"; }

stormSuppressed() {
    sinceBegin | sed -n 's/^VESTREL_INTEGRITY: \([0-9]*\) messages suppressed$/\1/p' |
        awk '{ sum += $1 } END { print sum + 0 }'
}

sinceBegin() { tail -n "+$stormBegin" "$agentLog"; }

begin() {
    stormBegin=$(($(wc -l <"$agentLog") + 1))
    stormStart=$(uptimeCentiseconds)
}

# NAME MATCHING: told and suppressed are together what was sent.
stormCounted() { [ $(($(stormTold "$1") + $(stormSuppressed))) -eq "$2" ]; }

# A hundred at once, and a hundred in every ten seconds.
withinLimit() {
    [ "$1" -ge 100 ] && [ "$1" -le $((101 + ($(uptimeCentiseconds) - stormStart) / 10)) ]
}

# Sets `keyTook`, in hundredths of a second.
keyArrives() {
    local dropped
    dropped=$(uptimeCentiseconds)
    cp "$trust/alpha.der" /etc/keys/ima/alpha.der.integrity-tmp
    mv /etc/keys/ima/alpha.der.integrity-tmp /etc/keys/ima/alpha.der
    await "alpha's key is in .ima" keyIs alpha
    keyTook=$(($(uptimeCentiseconds) - dropped))
    keysTook="$keysTook $((keyTook * 10)) ms"
}

# A host that gives the guest no processor says nothing of the agent: one of five has to be in time.
keyInTime() {
    local left=4
    keysTook=''
    keyArrives
    while [ $keyTook -gt 100 ] && [ $left -gt 0 ]; do
        rm /etc/keys/ima/alpha.der
        await "alpha's key is gone" not keyIs alpha
        keyArrives
        left=$((left - 1))
    done
    check "within a second (it took$keysTook)" [ $keyTook -le 100 ]
}

refusalIsTold() {
    cp "$trust/stranger.der" /etc/keys/ima/
    await "a record with a limit of its own is told" mentioned \
        "VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate /etc/keys/ima/stranger.der in keyring (.ima). Required key not available."
}

floodOfDatagrams() {
    local sender
    begin
    "$storm" "$socket" "kernel: $(record /t/storm)" "$otherLine" $stormSize >"$work/storm.out" 2>&1 &
    sender=$!
    await "the first of them are told" mentioned "for file /t/storm, invoked"
    keyInTime
    refusalIsTold
    check "the storm still goes on" isRunning "$sender"
    wait "$sender"
    check "all were taken" grep -q "^sent $stormSize " "$work/storm.out"
    await "told and suppressed together are all that match" stormCounted storm $((stormSize / 2))
    check "told are as many as the limit allows: $(stormTold storm)" withinLimit "$(stormTold storm)"
    echo "    $(cat "$work/storm.out"); $(stormTold storm) told, $(stormSuppressed) suppressed;" \
        "alpha's key in .ima after$keysTook"
    sinceBegin | grep suppressed | tail -n 1 | sed 's/^/    /'
}

# The agent tells what it has suppressed when it ends.
argumentsShareALimit() {
    local both
    begin
    check "the lines are sent" "$storm" "$socket" "kernel: $(record /t/storm-one)" \
        "$(echo "kernel: $(record /t/storm-two)" | sed s/missing-hash/invalid-hash/)" 2000 >/dev/null
    stopAgent
    both=$(($(stormTold storm-one) + $(stormTold storm-two)))
    check "told are as many as one limit allows: $both" withinLimit $both
    check "of both" [ "$(stormTold storm-one)" -gt 0 -a "$(stormTold storm-two)" -gt 0 ]
    check "told and suppressed together are all" [ $((both + $(stormSuppressed))) -eq 2000 ]
    startAgent
}
