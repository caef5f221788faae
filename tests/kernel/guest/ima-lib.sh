#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# What the IMA cases are told with: cases and checks, the agent, the senders, files to be appraised.

# shellcheck shell=dash disable=SC2034,SC2154,SC3043
trust=${VESTREL_TRUST:?}
agent=${VESTREL_AGENT:?}
storm=${VESTREL_STORM:?}
sender=$storm
socket=/var/run/IMAKernelMessages
agentLog=/results/ima-agent.log
everything=/var/log/all.log
forwarding=/guest-rsyslog/50-vestrel.conf
patience=20 # seconds; the processor is emulated
work=$(mktemp -d /tmp/ima.XXXXXX)
# shellcheck source=tests/kernel/guest/appraisal-lib.sh
. "$(dirname "$0")/appraisal-lib.sh"
casesRun=0
casesFailed=0
agentProcess=''
rsyslogProcess=''
klogProcess=''

# --- cases

# Runs a function as a case. It fails when a check does, and when it checks nothing.
testCase() {
    local name=$1 start end
    : >"$work/problems"
    : >"$work/checks"
    start=$(uptimeCentiseconds)
    "$2"
    end=$(uptimeCentiseconds)
    [ -s "$work/checks" ] || echo "the case checks nothing" >>"$work/problems"
    isRunning "$agentProcess" || echo "the agent does not run at the case's end" >>"$work/problems"
    casesRun=$((casesRun + 1))
    report "$name" $((end - start))
}

report() {
    local seconds
    seconds=$(printf '%d.%02d' $(($2 / 100)) $(($2 % 100)))
    if [ -s "$work/problems" ]; then
        casesFailed=$((casesFailed + 1))
        echo "FAILED $1: $(tr '\n' ';' <"$work/problems")"
        tail -n 5 "$agentLog" | sed 's/^/    agent: /'
        printf '<testcase classname="Ima" name="%s" time="%s"><failure message="%s"/></testcase>\n' \
            "$1" "$seconds" "$(escaped "$work/problems")" >>"$work/cases.xml"
    else
        echo "ok $1"
        printf '<testcase classname="Ima" name="%s" time="%s"/>\n' "$1" "$seconds" >>"$work/cases.xml"
    fi
}

escaped() {
    tr '\n' ';' <"$1" | sed 's/&/\&amp;/g; s/</\&lt;/g; s/>/\&gt;/g; s/"/\&quot;/g'
}

writeResults() {
    {
        echo '<?xml version="1.0" encoding="UTF-8"?>'
        printf '<testsuite name="ima" tests="%d" failures="%d">\n' $casesRun $casesFailed
        cat "$work/cases.xml"
        echo '</testsuite>'
    } >/results/ima.xml
}

check() {
    local expected=$1
    shift
    echo "$expected" >>"$work/checks"
    "$@" || echo "expected: $expected" >>"$work/problems"
}

# Asks in short steps until the answer is yes.
await() {
    local expected=$1 end
    shift
    echo "$expected" >>"$work/checks"
    end=$(($(uptimeCentiseconds) + patience * 100))
    until "$@"; do
        if [ "$(uptimeCentiseconds)" -gt $end ]; then
            echo "expected within $patience s: $expected" >>"$work/problems"
            return 1
        fi
        usleep 10000
    done
}

# Gives up all cases: without this nothing that follows means anything.
must() {
    local what=$1
    shift
    "$@" >"$work/must.out" 2>&1 && return
    echo "FAILED set-up: $what: $(cat "$work/must.out")"
    exit 1
}

uptimeCentiseconds() {
    local seconds
    read -r seconds _ </proc/uptime
    echo "${seconds%.*}${seconds#*.}" | sed 's/^0*\(.\)/\1/'
}

isRunning() {
    local state=''
    { read -r _ _ state _ <"/proc/${1:-0}/stat"; } 2>/dev/null
    [ "${state:-Z}" != Z ]
}

# --- the programs

# [TARGET]: where its log messages go.
startAgent() {
    launchAgent "${1:-stderr}"
    await "the agent's socket is there" receives
}

launchAgent() {
    "$agent" --log "$1" >>"$agentLog" 2>&1 &
    agentProcess=$!
}

killAgent() {
    kill -9 "$agentProcess"
    { wait "$agentProcess"; } 2>/dev/null
}

# A stale file of an agent that was killed refuses.
receives() {
    "$storm" "$socket" "is anybody there?" 2>/dev/null
}

stopAgent() {
    kill -TERM "$agentProcess"
    await "the agent ends when it is told to" not isRunning "$agentProcess" || kill -9 "$agentProcess"
    { wait "$agentProcess"; } 2>/dev/null
}

startRsyslog() {
    mkdir -p /etc/rsyslog.d /var/log
    : >$everything
    rsyslogd -n -f /guest/rsyslog.conf >>/results/rsyslogd.out 2>&1 &
    rsyslogProcess=$!
    await "rsyslogd listens" [ -S /dev/log ]
}

stopRsyslog() {
    kill -TERM "$rsyslogProcess"
    wait "$rsyslogProcess"
    rsyslogProcess=''
}

restartRsyslog() {
    stopRsyslog
    startRsyslog
}

asMallory() {
    su -s /bin/sh mallory -c "$1"
}

loadPolicy() {
    appraisalRules >"$policy"
}

# --- keys

# The certificate's key is in .ima.
keyIs() { keyctl list %:.ima | grep -qF "$(cat "$trust/$1.description")"; }

keyIsNot() { keyctl list %:.ima >"$work/list" && not grep -qF "$(cat "$trust/$1.description")" "$work/list"; }
