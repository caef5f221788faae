// SPDX-License-Identifier: Apache-2.0
// The places that a host may send log messages to.
#pragma once

#include "platform/Export.h"
#include "platform/zell/LogFacility.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace Zell {

// Structured journal entries: MESSAGE, PRIORITY, a MESSAGE_ID that is fixed per record, LOG_NAME
// and LOG_ARG_1 ... for the arguments.
VESTREL_EXPORT LogSink journalSink();

// syslog(3) with the record's severity.
VESTREL_EXPORT LogSink syslogSink();

// One line on stderr. Lines that one handler of the event loop raises are written together when it
// ends (platform/zell/StderrLines.h).
VESTREL_EXPORT LogSink stderrSink();

// The journal where it runs, else syslog(3), decided anew for each message.
VESTREL_EXPORT LogSink journalOrSyslogSink();

// The journal where it runs, else syslog(3) where something listens, else stderr.
VESTREL_EXPORT LogSink automaticSink();

// Name, ": ", text; control characters as \xHH, so that it is one line.
VESTREL_EXPORT std::string logLine(const LogMessage& message);

// The fixed identity of a record in the journal's catalogue, 32 hexadecimal digits, made of its
// name.
VESTREL_EXPORT std::string messageId(std::string_view name);

} // namespace Zell
