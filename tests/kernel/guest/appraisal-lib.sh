#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# What appraisals are tried with, whoever runs the agent: files, what the kernel says of them, and what
# becomes of that.
#
# It needs check, await and must; $work and $trust; $agentLog, the agent's messages, a line each;
# $everything, which the log daemon writes every line to.

# shellcheck shell=dash disable=SC2034,SC2154,SC2317,SC3043
policy=/sys/kernel/security/ima/policy
mallory=1002 # an ordinary user

not() {
    ! "$@"
}

# What is executed must be signed; what is read must carry its hash.
appraisalRules() {
    printf '%s\n' "appraise func=BPRM_CHECK mask=MAY_EXEC fowner=1000 appraise_type=imasig" \
        "appraise func=FILE_CHECK mask=MAY_READ fowner=1001"
}

# FILE [COMMAND...]: data to be read. The command (evmctl) comes before the owner: after that the file
# cannot be read without a hash.
dataFile() {
    local file=$1
    shift
    echo data >"$file"
    [ $# -eq 0 ] || must "$*" "$@" "$file"
    chown 1001 "$file"
}

# FILE [COMMAND...]: a program to be executed.
program() {
    local file=$1
    shift
    printf '#!/bin/sh\necho "%s ran"\n' "$file" >"$file"
    chmod 0755 "$file"
    chown 1000 "$file"
    [ $# -eq 0 ] || must "$*" "$@" "$file"
}

sign() { evmctl ima_sign --key "$1" "$2"; }

hash() { evmctl ima_hash -a sha256 "$1"; }

isRefused() {
    not "$@" >"$work/refused" 2>&1 && grep -q "Permission denied" "$work/refused"
}

# A record as the kernel writes it, of a file named in the first argument.
record() {
    printf '[   42.767325][   T10] audit: type=1800 audit(1795226825.572:11): pid=115 uid=0 auid=4294967295 ses=4294967295 op=appraise_data cause=missing-hash comm="cat" name="%s" dev="rootfs" ino=392 res=0 errno=0' "$1"
}

kernelSaid() {
    dmesg | grep -qE -- "$1"
}

# CAUSE FILE COMMAND: the very line of the log.
told() {
    grep -qFx "VESTREL_INTEGRITY: Integrity error of type AUDIT_INTEGRITY_DATA ($1), for file $2, invoked by $3" \
        "$agentLog"
}

# EXPRESSION: beside the messages there may be traces of all kinds.
messageWith() {
    grep '^VESTREL_INTEGRITY: ' "$agentLog" | grep -qE -- "$1"
}

mentioned() {
    grep -qF -- "$1" "$agentLog"
}

rsyslogHas() {
    grep -qF -- "$1" "$everything"
}

# Whatever the kernel said before this record has been forwarded and dealt with when its message is
# there: the road keeps the order.
laterViolation() {
    later=$((${later:-0} + 1))
    dataFile /t/later$later
    check "a later file is refused" isRefused cat /t/later$later
    await "the later violation's message arrives" told missing-hash /t/later$later cat
}
