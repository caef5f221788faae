#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The agent under everything at once for a long time: certificate files, keys by other hands, storms of
# violations, SIGHUP, and, in the first half, kill -9 and restarts at any moment. Then what has to be as
# ever is asked.
#
#   soak.sh MINUTES SEED
#
# VESTREL_AGENT is the agent's program, VESTREL_STORM the sender of datagrams. /results receives
# samples.csv, summary.txt, ima.xml and the agent's output.

# shellcheck shell=dash disable=SC2119,SC2317,SC3043,SC2154 source=tests/kernel/guest/ima-lib.sh
. "$(dirname "$0")/ima-lib.sh"
# shellcheck source=tests/kernel/guest/ima-storm.sh
. "$(dirname "$0")/ima-storm.sh"
# shellcheck source=tests/kernel/guest/soak-steps.sh
. "$(dirname "$0")/soak-steps.sh"

agentLog=/results/agent.log
minutes=$1
seed=$2
mostGrowth=128 # kB
quietSeconds=60

say() { echo "$*" | tee -a /results/summary.txt; }

# The process waits for something to happen: whatever happened before has been dealt with, because the
# kernel makes it runnable in the same moment.
isAtRest() {
    local state=''
    { read -r _ _ state _ <"/proc/$1/stat"; } 2>/dev/null
    [ "$state" = S ]
}

field() { awk -v name="$1:" '$1 == name { print $2 }' "/proc/$agentProcess/status"; }

descriptors() { find "/proc/$agentProcess/fd" -mindepth 1 2>/dev/null | wc -l; }

descriptorNames() { find "/proc/$agentProcess/fd" -mindepth 1 -exec readlink {} \;; }

processorTicks() { awk '{ print $14 + $15 }' "/proc/$agentProcess/stat"; }

switches() { awk '/ctxt_switches/ { sum += $2 } END { print sum }' "/proc/$agentProcess/status"; }

# Sets `row`. A look for drift, which opens files, may come in between by its timer.
isMeasuredAtRest() {
    local before
    isAtRest "$agentProcess" || return
    before=$(switches)
    row="$(field VmRSS) $(descriptors) $(processorTicks)"
    [ "$(switches)" = "$before" ]
}

sample() {
    await "the agent rests while it is measured" isMeasuredAtRest
    echo "$(($(uptimeCentiseconds) / 100)) $life $1 $row $steps" >>/results/samples.csv
}

# PHASE CENTISECONDS: steps until the time is up, with a sample every two seconds.
churn() {
    local end nextSample=0 now
    now=$(uptimeCentiseconds)
    end=$((now + $2))
    while [ "$now" -lt "$end" ]; do
        if [ "$now" -ge "$nextSample" ] && [ -z "$striker" ]; then
            sample "$1"
            [ "$1" = A ] || keysAreExplained || return
            nextSample=$((now + 200))
        fi
        ! isAtRest "$agentProcess" || rebuildIsSettled
        "step$1"
        steps=$((steps + 1))
        if strikeIsOver; then
            restartAfterStrike
        elif [ -z "$striker" ] && ! isRunning "$agentProcess"; then
            check "the agent still runs after step $steps: $(tail -n 1 "$agentLog")" false
            return
        fi
        now=$(uptimeCentiseconds)
    done
    [ -z "$striker" ] || restartAfterStrike
    sample "$1"
}

# At rest, in the middle of everything. What start-ups left in phase A is none of it.
keysAreExplained() {
    comparisons=$((comparisons + 1))
    nothingIsLeftBehind && return
    check "no key is left behind after step $steps, but there are:$left" false
    return 1
}

column() { awk -v phase="$1" -v from="$2" '$3 == phase { print $'"$3"' }' /results/samples.csv | tail -n "+$2"; }

# --- the cases

killedAndRestarted() {
    begin
    churn A $((minutes * 3000))
    check "the agent was killed and restarted: $life lives" [ $life -gt 1 ]
    check "start-ups were struck" grep -q '^in start-up' "$work/kills"
    check "steps went on while it was struck" grep -q '^in the background' "$work/kills"
    check "no start complains" not grep -q '^vestrel-agent:' "$agentLog"
    # The loop makes its timer when it is first asked for one, to report what was suppressed.
    check "descriptors are as many in every life, or one more: $(column A 1 5 | sort -u | tr '\n' ' ')" \
        [ $(($(column A 1 5 | sort -n | tail -n 1) - $(column A 1 5 | sort -n | head -n 1))) -le 1 ]
    say "phase A: $steps steps, $life lives of the agent, $(column A 1 5 | sort -u | tr '\n' ' ')descriptors"
    sort "$work/kills" | uniq -c | while read -r number where; do
        say "    struck $number times $where"
    done
}

traceRingIsFull() { [ "$(sinceBegin | grep -c '^IntegrityKeyringSm 1 getKey: ')" -ge 1024 ]; }

# The agent keeps its last 1,024 traces, half a megabyte. While that fills, memory grows.
traceRingFill() {
    local cycle=0 content number
    begin
    while [ $cycle -lt 22 ]; do # fifty traces each: a certificate that becomes a refused one
        for content in alpha stranger; do
            for number in $(seq 50); do
                cat "$trust/$content.der" >"/etc/keys/ima/ring-$number"
            done
            await "the agent comes to rest" isAtRest "$agentProcess"
        done
        cycle=$((cycle + 1))
    done
    rm /etc/keys/ima/ring-*
    await "the agent comes to rest" isAtRest "$agentProcess"
    check "the agent's trace ring is full" traceRingIsFull
}

inOneLife() {
    local first last stepsBefore=$steps samples
    freshStart
    traceRingFill
    sent=0 comparisons=0 leftAlone=0 leftInBurst=0
    begin
    churn B $((minutes * 3000))
    samples=$(column B 1 4 | wc -l)
    # After a fifth of the time every kind of step has been seen.
    first=$(column B $((samples / 5 + 1)) 4 | head -n $((samples / 5 + 1)) | sort -n | tail -n 1)
    last=$(column B 1 4 | tail -n $((samples / 5 + 1)) | sort -n | tail -n 1)
    check "memory is flat: $first kB, then $last kB" [ $((last - first)) -le $mostGrowth ]
    check "descriptors are flat: $(column B $((samples / 5 + 1)) 5 | sort -u | tr '\n' ' ')" \
        [ "$(column B $((samples / 5 + 1)) 5 | sort -u | wc -l)" -eq 1 ]
    descriptorNames | sort >/results/descriptors.txt
    say "phase B: $((steps - stepsBefore)) steps in one life, $samples samples;" \
        "most memory in its second fifth $first kB, in its last fifth $last kB;" \
        "$(column B $((samples / 5 + 1)) 5 | sort -u | tr '\n' ' ')descriptors"
    afterChurn
}

# So that there is something to compare, whatever chance has left.
everyDirectoryHasASoundFile() {
    for ring in $rings; do
        place=/etc/keys/${ring#.}
        content=alpha
        newName
        put "$file"
    done
}

# What is in the keyrings now is compared with a fresh start's later: that start would end this life.
afterChurn() {
    everyDirectoryHasASoundFile
    await "the agent comes to rest" isAtRest "$agentProcess"
    kill -HUP "$agentProcess"
    awaitSoundFiles SIGHUP
    check "every other key has its reason to be there" nothingIsLeftBehind
    settled=$(keyringsNow)
    say "compared: $comparisons times in phase B, every key linked had its file or its reason;" \
        "in the end $(echo "$settled" | grep -c .) keys, of them without a file $byHand added by hand," \
        "$inBurst of files that left while the agent was at work${left:+, and unexplained$left};" \
        "$leftAlone times a file left while the agent rested, $leftInBurst times while it was at work"
}

# The agent tells what it has suppressed when it ends.
everyMatchingLineIsToldOrCounted() {
    await "klogd has sent everything" isAtRest $klogProcess
    await "the agent comes to rest" isAtRest "$agentProcess"
    stopAgent
    check "told and suppressed ($(toldInAll) + $(stormSuppressed)) are what was sent ($sent)" \
        [ $(($(toldInAll) + $(stormSuppressed))) -eq "$sent" ]
    say "storms: $sent matching lines sent, $(toldInAll) told, $(stormSuppressed) suppressed"
    startAgent
    life=$((life + 1))
}

# LINES MORE: the lines of the second that the first lacks.
lacks() {
    echo "$1" >"$work/now"
    echo "$2" | grep -vxFf "$work/now"
}

# Which keys may be there beyond a fresh start's was asked when they were read.
afterChurnAsAfterAFreshStart() {
    local fresh
    freshStart
    fresh=$(keyringsNow)
    check "a fresh start makes nothing that was not there: $(lacks "$settled" "$fresh")" \
        [ -z "$(lacks "$settled" "$fresh")" ]
    check "what was there beyond it is $byHand keys by hand and $inBurst of bursts: $(lacks "$fresh" "$settled")" \
        [ "$(lacks "$fresh" "$settled" | grep -c .)" -eq $((byHand + inBurst)) ]
    check "both keyrings hold keys of files" [ "$(echo "$fresh" | cut -d ' ' -f 1 | uniq | grep -c .)" -eq 2 ]
    say "fresh start after phase B: $(echo "$fresh" | grep -c '^\.ima') keys in .ima and" \
        "$(echo "$fresh" | grep -c '^\.sec') in .secondary_trusted_keys, all of them there after the churn"
}

afterGentleStepsAsAfterAFreshStart() {
    local before
    freshStart
    stepsBefore=$steps
    churn C 2000
    await "the agent comes to rest" isAtRest "$agentProcess"
    before=$(keyringsNow)
    freshStart
    check "the keyrings are what a fresh start makes of the files" [ "$before" = "$(keyringsNow)" ]
    say "phase C: $((steps - stepsBefore)) steps on files alone, then the keyrings are those of a fresh" \
        "start: $(echo "$before" | grep -c .) keys"
}

nothingIsLostBelowTheLimit() {
    local i=0
    sleep 11 # the limit's interval, and more
    begin
    while [ $i -lt 90 ]; do
        dataFile "/t/single-$i"
        isRefused cat "/t/single-$i" || check "the file is refused" false
        i=$((i + 1))
    done
    i=0
    while [ $i -lt 90 ]; do
        await "violation $i is told" mentionedSinceBegin "for file /t/single-$i, invoked by cat"
        i=$((i + 1))
    done
    check "each once: $(stormTold 'single-[0-9]*')" [ "$(sinceBegin | grep -c 'for file /t/single-')" -eq 90 ]
    check "nothing is suppressed" [ "$(stormSuppressed)" -eq 0 ]
    say "below the limit: 90 violations of the kernel within $((($(uptimeCentiseconds) - stormStart) / 100)) s, 90 told, none suppressed"
}

quietAgentSleeps() {
    local wakeUps ticks
    sleep 11 # until nothing is left to report
    await "the agent comes to rest" isAtRest "$agentProcess"
    wakeUps=$(switches)
    ticks=$(processorTicks)
    sleep $quietSeconds
    wakeUps=$(($(switches) - wakeUps))
    ticks=$(($(processorTicks) - ticks))
    check "no wake-up in $quietSeconds s (there were $wakeUps)" [ $wakeUps -eq 0 ]
    check "no processor time in $quietSeconds s (there were $ticks ticks)" [ $ticks -eq 0 ]
    say "quiet: $wakeUps wake-ups and $ticks ticks of the processor in $quietSeconds s"
}

dmesg -n 1
echo 0 >/proc/sys/kernel/printk_ratelimit
mkdir -p /t /away
: >"$agentLog"
: >/results/samples.csv
: >"$work/kills"
leftAlone=0
leftInBurst=0
descriptionsRead
must "an IMA policy" loadPolicy
startMeasured
ln -s "$socket" /dev/log
klogd -n &
klogProcess=$!
say "seed $seed, $minutes minutes, kernel $(uname -r); a start takes up to $startTook ms"

testCase IsKilledAndRestartedAtAnyMoment killedAndRestarted
testCase StaysFlatInOneLife inOneLife
testCase TellsOrCountsEveryMatchingLine everyMatchingLineIsToldOrCounted
testCase HoldsAfterChurnWhatAFreshStartMakes afterChurnAsAfterAFreshStart
testCase HoldsAfterGentleStepsWhatAFreshStartMakes afterGentleStepsAsAfterAFreshStart
testCase LosesNothingBelowTheLimit nothingIsLostBelowTheLimit
testCase SleepsWhenAllIsQuiet quietAgentSleeps

writeResults
echo "soak: $casesRun cases, $casesFailed failed"
[ $casesFailed -eq 0 ]
