#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The steps of the soak: each takes one random choice, the same ones for the same seed.

# shellcheck shell=dash disable=SC2034,SC2317,SC3043,SC2154
life=1
steps=0
sent=0
fileCount=0

# LIMIT: sets `drawn` to 0 ... LIMIT-1. Not printed: a subshell would not keep the seed.
draw() {
    seed=$(((seed * 1103515245 + 12345) & 0x7fffffff))
    drawn=$(((seed >> 8) % $1))
}

# Sets `ring`, `place` and `content`.
drawRing() {
    draw 3
    ring=.ima
    [ "$drawn" -gt 0 ] || ring=.secondary_trusted_keys
    place=/etc/keys/${ring#.}
}

drawContent() {
    draw 10
    case $drawn in
    0 | 1) content=alpha ;;
    2) content=beta ;;
    3) content=gamma ;;
    4) content=twin-1 ;;
    5) content=twin-2 ;;
    6) content=leaf ;;
    7) content=replacement ;;
    8) content=stranger ;;
    *) content=garbage ;;
    esac
}

put() { # FILE
    if [ "$content" = garbage ]; then
        echo "not a certificate" >"$1"
    else
        cp "$trust/$content.der" "$1"
    fi
}

# Sets `file` to one of the place, if there is one.
drawFile() {
    set -- "$place"/*
    draw $#
    shift "$drawn"
    file=$1
    [ -e "$file" ]
}

# No name comes back: a file that leaves and comes again between two readings may end the agent.
newName() {
    fileCount=$((fileCount + 1))
    file=$place/f$fileCount
}

arrive() {
    drawContent
    newName
    put "$file.integrity-tmp"
    mv "$file.integrity-tmp" "$file"
}

fileStep() {
    drawRing
    set -- "$place"/*
    if [ $# -gt 8 ]; then
        drawFile
        rm "$file"
        return
    fi
    draw 8
    case $drawn in
    0 | 1 | 2) arrive ;;
    3) drawContent && newName && put "$file" ;;
    4) drawFile && rm "$file" ;;
    5) drawFile && mv "$file" "/away/$fileCount" ;;
    6) drawFile && old=$file && newName && mv "$old" "$file" ;;
    *) drawFile && drawContent && put "$file" ;;
    esac
    rm -f /away/*
}

keyStep() {
    local key
    drawRing
    draw 12
    case $drawn in
    0) [ "$ring" = .secondary_trusted_keys ] || keyctl clear "%:$ring" ;;
    1 | 2 | 3 | 4 | 5)
        drawContent
        [ "$content" = garbage ] || keyctl padd asymmetric "" "%:$ring" <"$trust/$content.der" >/dev/null 2>&1
        ;;
    *)
        # Another's hand may be quicker.
        key=$(keyctl list "%:$ring" | awk '/ asymmetric: /{ sub(":", "", $1); print $1; exit }')
        [ -z "$key" ] || keyctl unlink "$key" "%:$ring" 2>/dev/null
        ;;
    esac
    true
}

line() {
    printf '[   42.767325][   T10] audit: type=1800 audit(1795226825.572:11): pid=115 uid=0 auid=4294967295 ses=4294967295 op=appraise_data cause=missing-hash comm="cat" name="%s" dev="rootfs" ino=392 res=0 errno=0' "$1"
}

stormStep() {
    draw 3000
    drawn=$(((drawn + 2) / 2 * 2))
    "$storm" "$socket" "kernel: $(line /t/storm)" "$otherLine" $drawn >/dev/null && sent=$((sent + drawn / 2))
}

violationStep() {
    local i=0
    dataFile /t/violation
    draw 8
    while [ $i -le "$drawn" ]; do
        cat /t/violation 2>/dev/null
        sent=$((sent + 1))
        i=$((i + 1))
    done
}

lifeStep() {
    draw 3
    case $drawn in
    0) stopAgent ;;
    *) killAgent ;;
    esac
    startAgent
    life=$((life + 1))
}

stepA() {
    draw 40
    if [ "$drawn" = 0 ]; then
        lifeStep
    else
        stepB
    fi
}

stepB() {
    draw 40
    case $drawn in
    0) kill -HUP "$agentProcess" ;;
    1) stormStep ;;
    2 | 3) violationStep ;;
    4) usleep 300000 ;;
    5 | 6 | 7 | 8 | 9 | 10 | 11 | 12 | 13) keyStep ;;
    *) fileStep ;;
    esac
}

# What is loaded and removed in one go may leave its key behind: here each step has its time.
stepC() {
    fileStep
    await "the agent comes to rest" isAtRest "$agentProcess"
}

# --- what is asked of the whole

toldInAll() { sinceBegin | grep -cE 'for file /t/(storm|violation), invoked'; }

mentionedSinceBegin() { sinceBegin | grep -qF -- "$1"; }

keyringNow() { keyctl list %:.ima | sed -n 's/.* asymmetric: //p' | sort; }

freshStart() {
    stopAgent
    keyctl clear %:.ima
    startAgent
    life=$((life + 1))
}

# Every file of a sound certificate has its key in the keyring.
soundFilesAreLoaded() {
    local file name
    isAtRest "$agentProcess" || return
    for file in /etc/keys/ima/*; do
        for name in alpha beta gamma twin-1 twin-2 leaf replacement; do
            if cmp -s "$file" "$trust/$name.der" && ! keyIs "$name"; then
                return 1
            fi
        done
    done
}
