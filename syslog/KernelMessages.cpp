// SPDX-License-Identifier: Apache-2.0
// Kernel lines turned into log messages.
#include "logmsg/LogCall.h"
#include "logmsg/LogMessages.h"
#include "platform/duolog/Duolog.h"
#include "syslog/AppraisalPattern.h"
#include "syslog/IntegritySyslogSm.h"
#include "syslog/KernelMessageCounters.h"

#include <string>

namespace Vestrel {

namespace {

// The audit framework's name of record type 1800.
const Orvo::String auditType = "AUDIT_INTEGRITY_DATA";

const Orvo::Regex appraisalRecord = Orvo::Regex::compile(appraisalPattern, &appraisalSearch);

LogHandles logHandles;

} // namespace

void IntegritySyslogSm::processKernelMsg(const Orvo::String& message) {
    DUOLOG(5, "");
    const auto groups = appraisalRecord.search(message);
    if (!groups) {
        return;
    }
    ++KernelMessageCounters::counters().matches;
    const std::string cause((*groups)[causeGroup]);
    const std::string file((*groups)[fileGroup]);
    const std::string command((*groups)[commandGroup]);
    log(logHandles.VESTREL_INTEGRITY, auditType, cause, file, command);
}

} // namespace Vestrel
