#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The appraisal cases that are the same whoever runs the agent and the log daemon: from a file that the
# kernel refuses to the agent's message, and what must not become one.
#
# Beside what appraisal-lib.sh needs: $socket, the agent's; $forwarding, the log daemon's part that leads
# there; restartRsyslog; asMallory COMMAND, an ordinary user's shell; and $sender, which he can run:
# "$sender SOCKET LINE" sends one datagram.

# shellcheck shell=dash disable=SC2016,SC2317,SC3043,SC2154
socketBelongsToRoot() {
    check "the socket file is a socket, 0600, of root" \
        [ "$(stat -c '%F %a %u %g' "$socket")" = "socket 600 0 0" ]
}

userCannotWrite() {
    local answer
    answer=$(asMallory "$sender $socket 'kernel: $(record /t/direct)' 2>&1")
    check "mallory is not allowed to" [ "$answer" = "${sender##*/}: connect: Permission denied" ]
    check "root is" "$sender" "$socket" "kernel: $(record /t/by-root)"
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
        check "a file is refused whose name is '$(printf '%s' "$name" | tr '\n' '|')'" isRefused cat "/t/$name"
    done
    printf '#!/bin/sh\nread -r line </t/by-blank\n' >"/tmp/my reader"
    chmod 0755 "/tmp/my reader"
    dataFile /t/by-blank
    check "a reader with a blank in its own name is refused" isRefused "/tmp/my reader"
    await "the kernel writes the names as hex" \
        kernelSaid 'cause=missing-hash comm="cat" name=2F742F6120626C616E6B dev='
    check "and the reader's" kernelSaid 'comm=6D7920726561646572 name="/t/by-blank"'
    laterViolation
    check "no message names them" not messageWith '2F74|6D79|blank|quote|umlaut|feed'
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
    await "rsyslogd has the line" rsyslogHas 'name="/t/original"'
    line=$(grep -F 'name="/t/original"' "$everything" | sed 's/.* kernel: /kernel: /; s,/t/original,/t/again,')
    check "the record can be sent again" "$sender" "$socket" "$line"
    await "and is told again" told missing-hash /t/again cat
    line=$(echo "$line" | sed s,/t/again,/t/other,)
    check "op=appraise_metadata is sent" \
        "$sender" "$socket" "$(echo "$line" | sed s/appraise_data/appraise_metadata/)"
    check "type=1801 is sent" "$sender" "$socket" "$(echo "$line" | sed s/type=1800/type=1801/)"
    check "a line with more behind it is sent" "$sender" "$socket" "$line."
    laterViolation
    check "none of them is told" not mentioned /t/other
}

# What an ordinary user can send to /dev/log, each form with a file name of its own.
forge() {
    asMallory "$sender /dev/log '<3>kernel: $(record "$1-tag")'" &&
        asMallory "$sender /dev/log '<3>Nov 21 04:00:00 kernel: $(record "$1-stamp")'" &&
        asMallory "$sender /dev/log 'kernel: $(record "$1-bare")'" &&
        asMallory "$sender /dev/log '<3>Nov 21 04:00:00 vestrel-guest kernel: $(record "$1-host")'" &&
        asMallory "logger -p kern.err -t kernel '$(record "$1-logger")'" &&
        asMallory "logger -p kern.err -t x 'kernel: $(record "$1-inner")'"
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
    sed 's/ and \$inputname == "imklog"//' "$forwarding" >/etc/rsyslog.d/50-vestrel.conf
    check "the filter is loose" not grep -q '^if.*inputname' /etc/rsyslog.d/50-vestrel.conf
    restartRsyslog
    check "mallory can write to /dev/log" forge /t/loose
    await "a forged line arrives where the input's name is not asked for" \
        told missing-hash /t/loose-tag cat
    cp "$forwarding" /etc/rsyslog.d/
    restartRsyslog
    laterViolation
}
