#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The cases in which rsyslogd or klogd carries the kernel's lines to the agent.

# shellcheck shell=dash disable=SC2016,SC2317,SC3043,SC2154
# A record as the kernel writes it, of a file named in the first argument.
record() {
    printf '[   42.767325][   T10] audit: type=1800 audit(1795226825.572:11): pid=115 uid=0 auid=4294967295 ses=4294967295 op=appraise_data cause=missing-hash comm="cat" name="%s" dev="rootfs" ino=392 res=0 errno=0' "$1"
}

socketBelongsToRoot() {
    check "the socket file is a socket, 0600, of root" \
        [ "$(stat -c '%F %a %u %g' "$socket")" = "socket 600 0 0" ]
}

userCannotWrite() {
    local answer
    answer=$(asMallory "$storm $socket 'kernel: $(record /t/direct)' 2>&1")
    check "mallory is not allowed to" [ "$answer" = "vestrel-datagram-storm: connect: Permission denied" ]
    check "root is" "$storm" "$socket" "kernel: $(record /t/by-root)"
    await "root's line arrives" told missing-hash /t/by-root cat
    check "mallory's does not" not mentioned /t/direct
}

missingHash() {
    dataFile /t/nohash
    check "the file is refused" isRefused cat /t/nohash
    await "its message arrives" told missing-hash /t/nohash cat
}

invalidHash() {
    tamper() { hash "$1" && echo more >>"$1"; }
    dataFile /t/kept hash
    check "a file with its hash can be read" grep -q data /t/kept
    dataFile /t/tampered tamper
    check "the tampered file is refused" isRefused cat /t/tampered
    await "its message arrives" told invalid-hash /t/tampered cat
    check "there is none of the other" not mentioned /t/kept
}

signatureRequired() {
    program /t/hashed hash
    check "the program is refused" isRefused env /t/hashed
    await "its message arrives" told IMA-signature-required /t/hashed env
}

invalidSignature() {
    tamperSigned() { sign "$trust/leaf.key" "$1" && echo "# more" >>"$1"; }
    signAsStranger() { sign "$trust/twin.key" "$1"; }
    program /t/changed tamperSigned
    check "the changed program is refused" isRefused env /t/changed
    await "its message arrives" told invalid-signature /t/changed env
    program /t/strange signAsStranger
    check "the program signed by a key that is not in .ima is refused" isRefused env /t/strange
    await "its message arrives" told invalid-signature /t/strange env
}

hexNames() {
    local name
    for name in "a blank" 'a"quote' "$(printf 'umlaut-\303\244')" "$(printf 'line\nfeed')"; do
        dataFile "/t/$name"
        check "'$name' is refused" isRefused cat "/t/$name"
    done
    printf '#!/bin/sh\nread -r line </t/by-blank\n' >"/tmp/my reader"
    chmod 0755 "/tmp/my reader"
    dataFile /t/by-blank
    check "a reader with a blank is refused" isRefused "/tmp/my reader"
    await "the kernel writes the names as hex" \
        kernelSaid 'cause=missing-hash comm="cat" name=2F742F6120626C616E6B dev='
    check "and the reader's" kernelSaid 'comm=6D7920726561646572 name="/t/by-blank"'
    laterViolation
    check "no message names them" not grep -qE '2F74|6D79|blank|quote|umlaut|feed' "$agentLog"
}

cutRecords() {
    local part directory=/t file
    part=$(printf '%0199d' 0)
    directory=/t/cut$part/$part/$part/$part
    mkdir -p "$directory"
    file=$directory/$part
    dataFile "$file"
    check "the file with the long path is refused" isRefused cat "$file"
    laterViolation # without a line end, a cut record comes out of the kernel with the next line
    check "the kernel has cut the record" kernelSaid 'name="/t/cut0*/[0/]*$'
    check "no message names it" not mentioned /t/cut
    part=$(printf '%0250d' 0)
    directory=/t/whole$part/$part
    mkdir -p "$directory"
    dataFile "$directory/$part"
    check "one with a path of 700 and more is refused" isRefused cat "$directory/$part"
    await "its message arrives whole" told missing-hash "$directory/$part" cat
}

# The test kernel has nothing that writes this operation: a real record is changed in that one word.
otherRecords() {
    local line
    dataFile /t/original
    check "the file is refused" isRefused cat /t/original
    await "its message arrives" told missing-hash /t/original cat
    line="kernel: $(dmesg | grep -F 'name="/t/original"' | sed s,/t/original,/t/again,)"
    check "the record can be sent again" "$storm" "$socket" "$line"
    await "and is told again" told missing-hash /t/again cat
    line=$(echo "$line" | sed s,/t/again,/t/other,)
    check "op=appraise_metadata is sent" \
        "$storm" "$socket" "$(echo "$line" | sed s/appraise_data/appraise_metadata/)"
    check "type=1801 is sent" "$storm" "$socket" "$(echo "$line" | sed s/type=1800/type=1801/)"
    check "a line with more behind it is sent" "$storm" "$socket" "$line."
    laterViolation
    check "none of them is told" not mentioned /t/other
}

# What an ordinary user can send to /dev/log, each form with a file name of its own.
forge() {
    asMallory "$storm /dev/log '<3>kernel: $(record "$1-tag")'" &&
        asMallory "$storm /dev/log '<3>Nov 21 04:00:00 kernel: $(record "$1-stamp")'" &&
        asMallory "$storm /dev/log 'kernel: $(record "$1-bare")'" &&
        asMallory "$storm /dev/log '<3>Nov 21 04:00:00 vestrel-guest kernel: $(record "$1-host")'" &&
        asMallory "logger -p kern.err -t kernel '$(record "$1-logger")'" &&
        asMallory "logger -p kern.err -t x 'kernel: $(record "$1-inner")'"
}

rsyslogHas() {
    grep -qF -- "$1" "$everything"
}

forgedLines() {
    local form
    check "mallory can write to /dev/log" forge /t/forged
    for form in tag stamp bare host logger inner; do
        await "rsyslogd has dealt with the form '$form'" rsyslogHas "/t/forged-$form"
    done
    laterViolation
    check "none of them is told" not mentioned /t/forged
}

# The control of the case before: the same lines get through once the filter is loose.
looseFilter() {
    stopRsyslog
    sed 's/ and \$inputname == "imklog"//' /guest-rsyslog/50-vestrel.conf >/etc/rsyslog.d/50-vestrel.conf
    check "the filter is loose" not grep -q '^if.*inputname' /etc/rsyslog.d/50-vestrel.conf
    startRsyslog
    check "mallory can write to /dev/log" forge /t/loose
    await "a forged line arrives where the input's name is not asked for" \
        told missing-hash /t/loose-tag cat
    stopRsyslog
    cp /guest-rsyslog/50-vestrel.conf /etc/rsyslog.d/
    startRsyslog
    laterViolation
}

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
