#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Real appraisal failures on their way from the kernel through a real sender to the agent's log, and
# what must not get there.
#
# VESTREL_AGENT is the agent's program, VESTREL_STORM the sender of datagrams. /results receives
# ima.xml, the agent's and rsyslogd's output.

# shellcheck shell=dash disable=SC3043 source=tests/kernel/guest/ima-lib.sh
. "$(dirname "$0")/ima-lib.sh"
# shellcheck source=tests/kernel/guest/appraisal-cases.sh
. "$(dirname "$0")/appraisal-cases.sh"
# shellcheck source=tests/kernel/guest/ima-cases.sh
. "$(dirname "$0")/ima-cases.sh"
# shellcheck source=tests/kernel/guest/ima-storm.sh
. "$(dirname "$0")/ima-storm.sh"

configurationIsTaken() {
    rsyslogd -N1 -f /guest/rsyslog.conf >"$work/config" 2>&1 || { cat "$work/config" && return 1; }
    ! grep -vE '^rsyslogd: (version|End of config)' "$work/config"
}

echo "mallory:x:$mallory:$mallory:mallory:/:/bin/sh" >>/etc/passwd
echo "mallory:x:$mallory:" >>/etc/group
dmesg -n 1
echo 0 >/proc/sys/kernel/printk_ratelimit
mkdir -p /t /etc/rsyslog.d
cp "$forwarding" /etc/rsyslog.d/
: >"$agentLog"
must "an IMA policy" loadPolicy
must "rsyslogd takes the configuration without a word" configurationIsTaken
startAgent
startRsyslog

testCase SocketIsRootsAlone socketBelongsToRoot
testCase UserCannotWriteToTheSocket userCannotWrite
testCase MissingHash missingHash
testCase InvalidHash invalidHash
testCase SignatureRequired signatureRequired
testCase InvalidSignature invalidSignature
testCase NamesThatTheKernelWritesAsHexAreDropped hexNames
testCase CutRecordsAreDropped cutRecords
testCase OtherRecordsAreDropped otherRecords
testCase ForgedLinesThroughDevLogAreDropped forgedLines
testCase ForgedLinesArriveWithALooseFilter looseFilter
testCase AgentThatStandsStillHoldsUpNobody stoppedAgent
testCase KilledAgentLeavesAStaleSocketThatTheNextOneReplaces killedAgent
testCase CertificateFileDecidesWhatRuns certificateDecides
testCase ThroughKlogd throughKlogd
testCase ForgedLinesBesideKlogdAreDropped forgedBesideKlogd
testCase KlogdFindsTheNextAgent klogdFindsTheNextAgent
testCase AgentDoesNotLogToItself agentDoesNotLogToItself
stopKlogd
testCase StormIsReadWholeAndLimitedWhileTheKeyringIsServed floodOfDatagrams
testCase FailuresThatDifferInTheirArgumentsShareALimit argumentsShareALimit

writeResults
echo "ima cases: $casesRun run, $casesFailed failed"
[ $casesFailed -eq 0 ]
