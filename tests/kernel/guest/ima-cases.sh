#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The cases in which the agent stands still, is killed or is asked through klogd, and in which
# certificates decide.

# shellcheck shell=dash disable=SC2016,SC2317,SC3043,SC2154

# A stopped agent takes nothing, and rsyslogd's other targets get their lines all the same.
stoppedAgent() {
    local i=0
    kill -STOP "$agentProcess"
    dataFile /t/meanwhile
    while [ $i -lt 40 ]; do # more than the socket's queue holds
        check "the file is refused" isRefused cat /t/meanwhile
        i=$((i + 1))
    done
    check "a user's line is logged" logger -t user "while the agent stands still"
    await "rsyslogd writes it to its file" rsyslogHas "while the agent stands still"
    check "the agent still stands" not mentioned /t/meanwhile
    kill -CONT "$agentProcess"
    await "all lines arrive then" toldTimes 40 /t/meanwhile
}

toldTimes() {
    [ "$(grep -cF "for file $2, invoked" "$agentLog")" -eq "$1" ]
}

killedAgent() {
    killAgent
    check "the socket file is still there" [ -S "$socket" ]
    check "nobody listens" not receives
    startAgent
    socketBelongsToRoot
    laterViolation
    stopAgent
    check "an agent that ends in order removes the file" [ ! -e "$socket" ]
    startAgent
    laterViolation
}

# Through both state machines: what may run follows from the certificate files.
certificateDecides() {
    signAsLeaf() { sign "$trust/leaf.key" "$1"; }
    program /t/signed signAsLeaf
    check "without the certificate it is refused" isRefused env /t/signed
    await "and told" told invalid-signature /t/signed env
    cp "$trust/leaf.der" /etc/keys/ima/
    await "the certificate's key is in .ima" keyIs leaf
    check "the very same file runs" [ "$(env /t/signed)" = "/t/signed ran" ]
    rm /etc/keys/ima/leaf.der
    await "the key is in .ima no more" keyIsNot leaf
    check "a file that the kernel has found good still runs" [ "$(env /t/signed)" = "/t/signed ran" ]
    program /t/fresh signAsLeaf
    check "a fresh copy is refused" isRefused env /t/fresh
    await "and told" told invalid-signature /t/fresh env
    before=$(grep -c 'for file /t/signed,' "$agentLog")
    chmod 0700 /t/signed
    check "after chmod the file is refused too" isRefused env /t/signed
    await "and told again" toldTimes $((before + 1)) /t/signed
}

# --- with klogd, whose /dev/log is the agent's socket

throughKlogd() {
    stopRsyslog
    rm -f /dev/log
    ln -s "$socket" /dev/log
    klogd -n &
    klogProcess=$!
    dataFile /t/by-klogd
    check "the file is refused" isRefused cat /t/by-klogd
    await "its message arrives" told missing-hash /t/by-klogd cat
    program /t/klogd-hashed hash
    check "the program is refused" isRefused env /t/klogd-hashed
    await "its message arrives" told IMA-signature-required /t/klogd-hashed env
}

forgedBesideKlogd() {
    check "mallory cannot write to /dev/log" not forge /t/beside 2>/dev/null
    check "nor with logger's help" asMallory "logger -p kern.err -t kernel '$(record /t/beside)'"
    laterViolation
    check "nothing is told" not mentioned /t/beside
}

klogdFindsTheNextAgent() {
    killAgent
    startAgent
    laterViolation
}

# With klogd's link /dev/log is there, and leads back to the agent.
agentDoesNotLogToItself() {
    local target before
    for target in auto syslog; do
        stopAgent
        startAgent "$target"
        before=$(grep -c 'for file /t/own' "$agentLog")
        check "more than the socket's queue holds is taken ($target)" \
            timeout 20 "$storm" "$socket" "kernel: $(record /t/own)" "no record" 100 >/dev/null
        await "and told on stderr ($target)" toldTimes $((before + 50)) /t/own
    done
    stopAgent
    startAgent
    laterViolation
}

stopKlogd() {
    kill "$klogProcess"
    { wait "$klogProcess"; } 2>/dev/null
    rm -f /dev/log
}
