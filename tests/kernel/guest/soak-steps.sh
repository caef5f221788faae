#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The steps of the soak: each takes one random choice, the same ones for the same seed.

# shellcheck shell=dash disable=SC2034,SC2317,SC3043,SC2154
life=1
steps=0
sent=0
fileCount=0
striker='' # its process, while a signal is under way
ifRebuilt='' # the assignment that holds if everything is rebuilt before the agent rests again
rings=".ima .secondary_trusted_keys"
soundNames="alpha beta gamma twin leaf replacement"
statusSocket=/run/vestrel/agent.sock

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
    contentIs "$1"
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
        contentLeaves
        rm "$file"
        return
    fi
    draw 8
    case $drawn in
    0 | 1 | 2) arrive ;;
    3) drawContent && newName && put "$file" ;;
    4) drawFile && contentLeaves && rm "$file" ;;
    5) drawFile && contentLeaves && mv "$file" "/away/$fileCount" ;;
    6) drawFile && old=$file && newName && contentMoves "$old" && mv "$old" "$file" ;;
    *) drawFile && drawContent && contentLeaves && put "$file" ;;
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
        [ "$content" = garbage ] || handAdds
        ;;
    *)
        # Another's hand may be quicker.
        key=$(keyctl list "%:$ring" | awk '/ asymmetric: /{ sub(":", "", $1); print $1; exit }')
        [ -z "$key" ] || keyctl unlink "$key" "%:$ring" 2>/dev/null
        ;;
    esac
    true
}

handAdds() {
    keyctl padd asymmetric "" "%:$ring" <"$trust/$content.der" >/dev/null 2>&1 &&
        eval "last_${ring#.}_${content%-[12]}=added"
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

# --- kills

count() { echo "$1" >>"$work/kills"; }

# Sets `signal`: one in three is SIGTERM.
drawSignal() {
    draw 3
    signal=KILL
    [ "$drawn" -gt 0 ] || signal=TERM
}

# Taken in turn, so that a short soak has all of them too.
lifeStep() {
    if [ $((life % 2)) -eq 0 ]; then
        killBetweenSteps
    else
        strikeLater
    fi
}

killBetweenSteps() {
    drawSignal
    case $signal in
    TERM) stopAgent ;;
    *) killAgent ;;
    esac
    count "between steps, $signal"
    restart
}

# Steps go on until the signal comes, and until the next of them ends the agent lies dead.
strikeLater() {
    drawSignal
    draw 200
    strike "$signal" "$drawn" &
    striker=$!
    draw 2
    [ "$drawn" = 0 ] || kill -HUP "$agentProcess"
}

strike() { # SIGNAL MILLISECONDS
    usleep $(($2 * 1000))
    if isAtRest "$agentProcess"; then
        count "in the background, $1"
    else
        count "in the background, $1, at work"
    fi
    kill "-$1" "$agentProcess"
}

strikeIsOver() { [ -n "$striker" ] && not isRunning "$striker"; }

restartAfterStrike() {
    wait "$striker"
    striker=''
    await "the agent ends when it is struck" not isRunning "$agentProcess" || kill -9 "$agentProcess"
    { wait "$agentProcess"; } 2>/dev/null
    restart
}

# In two of four restarts a start-up is cut short before the one that has to make everything right.
restart() {
    [ $((life / 2 % 2)) -eq 0 ] || startInterrupted
    startAgent
    life=$((life + 1))
    awaitSoundFiles "start $life"
}

# The very first start is slower than all others.
startMeasured() {
    local begun
    startAgent
    stopAgent
    begun=$(uptimeCentiseconds)
    launchAgent stderr
    await "the status socket is there" isStarted
    startTook=$((($(uptimeCentiseconds) - begun) * 10 + 10)) # ms, with the time until it is noticed
}

# A strike that came too late has the next ones come earlier.
startInterrupted() {
    local stage
    drawSignal
    draw "$startTook"
    launchAgent stderr
    usleep $((drawn * 1000))
    kill -STOP "$agentProcess" # it gets no further while it is looked at
    stage=$(startedUpTo)
    count "$stage, $signal"
    [ "$stage" != "just started" ] || startTook=$((startTook * 3 / 4 + 1))
    kill "-$signal" "$agentProcess"
    kill -CONT "$agentProcess" 2>/dev/null
    await "the agent ends when its start-up is struck" not isRunning "$agentProcess" || kill -9 "$agentProcess"
    { wait "$agentProcess"; } 2>/dev/null
}

# The status socket is the last thing that a start-up makes.
isStarted() { grep -qF "$statusSocket" /proc/net/unix; }

startedUpTo() {
    if isStarted; then
        echo "just started"
    elif descriptorNames | grep -q inotify; then
        echo "in start-up, at the keyrings"
    else
        echo "in start-up, before the keyrings"
    fi
}

# --- steps of the phases

stepA() {
    draw 15
    if [ "$drawn" = 0 ] && [ -z "$striker" ]; then
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

# --- what the files carry, and why a key may be there without one

# Of each file's number the certificate's name is kept while it is there, and of each key of a sound
# certificate what happened last that may let it be in the keyring without a file:
#   added   another hand added it
#   burst   its file left while the agent was at work, maybe at the load of it, or rebuilt everything
#   alone   its file left while the agent rested: the key must go, whoever added it

contentIs() { # FILE
    local number=${1##*/f}
    eval "holds${number%.integrity-tmp}=${content%-[12]}"
}

contentMoves() { # FROM
    eval "holds${file##*/f}=\${holds${1##*/f}}; unset holds${1##*/f}"
}

# RECORD=VALUE: the agent rests, and this is for the case that everything is rebuilt before it rests again.
ifRebuiltIs() {
    ifRebuilt=$1
    logSize=$(stat -c %s "$agentLog")
}

# The agent rests, or did so a moment ago.
rebuildIsSettled() {
    [ -n "$ifRebuilt" ] || return 0
    if tail -c "+$((logSize + 1))" "$agentLog" | grep -q '^VESTREL_INTEGRITY_DRIFT:'; then
        eval "$ifRebuilt"
    fi
    ifRebuilt=''
}

contentLeaves() {
    local name record
    eval "name=\${holds${file##*/f}}; unset holds${file##*/f}"
    record=${ring#.}_$name
    if isAtRest "$agentProcess"; then
        rebuildIsSettled
        eval "last_$record=alone"
        leftAlone=$((leftAlone + 1))
        ifRebuiltIs "last_$record=burst"
    else
        eval "last_$record=burst"
        leftInBurst=$((leftInBurst + 1))
    fi
}

# RING: sets `carried` to the sound certificates in its directory.
filesOf() {
    local file name
    carried=' '
    for file in "/etc/keys/${1#.}"/*; do
        [ -e "$file" ] || continue
        eval "name=\${holds${file##*/f}}"
        case "$carried " in
        *" $name "*) continue ;;
        esac
        case " $soundNames " in
        *" $name "*) carried="$carried$name " ;;
        esac
    done
}

# RING: sets `held` to the certificates whose keys it holds.
keysOf() {
    local list name description
    list=$(keyctl list "%:$1")
    held=' '
    for name in $soundNames; do
        eval "description=\$description_$name"
        case $list in *" asymmetric: $description"*) held="$held$name " ;; esac
    done
    # shellcheck disable=SC2086
    set -- $held
    [ "$(echo "$list" | grep -c ' asymmetric: ')" -eq $# ] || held="${held}unknown "
}

descriptionsRead() {
    local name
    for name in alpha beta gamma twin-1 leaf replacement; do
        eval "description_${name%-1}=\$(cat \"\$trust/$name.description\")"
    done
}

# Sets `missing` to the keys that files carry and keyrings lack.
soundFilesAreLoaded() {
    local ring name
    isAtRest "$agentProcess" || return
    missing=''
    for ring in $rings; do
        filesOf "$ring"
        keysOf "$ring"
        for name in $carried; do
            case $held in *" $name "*) ;; *) missing="$missing $ring:$name" ;; esac
        done
    done
    [ -z "$missing" ]
}

awaitSoundFiles() { # AFTER
    await "every sound file's key is in its keyring after $1" soundFilesAreLoaded ||
        check "nothing is missing, but there is:$missing" false
}

# Sets `left` to the keys that no file carries and nothing explains, `byHand` and `inBurst` to the
# numbers of those that something does. The agent rests.
nothingIsLeftBehind() {
    local ring name
    rebuildIsSettled
    left='' byHand=0 inBurst=0
    for ring in $rings; do
        filesOf "$ring"
        keysOf "$ring"
        for name in $held; do
            case $carried in *" $name "*) continue ;; esac
            eval "last=\${last_${ring#.}_$name:-nothing}"
            case $last in
            added) byHand=$((byHand + 1)) ;;
            burst) inBurst=$((inBurst + 1)) ;;
            *) left="$left $ring:$name($last)" ;;
            esac
        done
    done
    [ -z "$left" ]
}

# Of every key in the keyrings a line.
keyringsNow() {
    local ring
    for ring in $rings; do
        keyctl list "%:$ring" | sed -n "s/.* asymmetric: /$ring /p"
    done | sort
}

# .secondary_trusted_keys may not be cleared: its links to other keyrings are what it trusts.
emptyKeyrings() {
    local ring key name
    for ring in $rings; do
        for key in $(keyctl list "%:$ring" | awk '/ asymmetric: /{ sub(":", "", $1); print $1 }'); do
            keyctl unlink "$key" "%:$ring"
        done
        for name in $soundNames; do
            unset "last_${ring#.}_$name"
        done
    done
    check "the keyrings are empty" [ -z "$(keyringsNow)" ]
}

freshStart() {
    stopAgent
    emptyKeyrings
    startAgent
    life=$((life + 1))
    await "the agent comes to rest" isAtRest "$agentProcess"
}
