// SPDX-License-Identifier: Apache-2.0
// Where the agent's traces and log messages go.
#include "agent/Sinks.h"

#include "platform/zell/LogFacility.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/OneLine.h"
#include "platform/zell/TraceHandle.h"

#include <syslog.h>
#include <unistd.h>

#include <string>

namespace Vestrel {

namespace {

// In one write, so that lines of several processes do not mix.
void traceToStderr(const Zell::TraceLine& line) {
    const std::string text = std::string(line.handle) + " " + std::to_string(line.level) + " " +
                             Zell::oneLine(line.text) + "\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
}

Zell::LogSink logSink(LogTarget target) {
    switch (target) {
    case LogTarget::journal:
        return Zell::journalSink();
    case LogTarget::syslog:
        return Zell::syslogSink();
    case LogTarget::standardError:
        return Zell::stderrSink();
    case LogTarget::automatic:
        break;
    }
    return Zell::automaticSink();
}

} // namespace

void sinksAre(const AgentOptions& options) {
    Zell::traceLevelIs(options.traceLevel);
    Zell::traceSinkIs(traceToStderr);
    openlog("vestrel-agent", LOG_PID, LOG_DAEMON);
    Zell::LogFacility::sinkIs(logSink(options.log));
}

} // namespace Vestrel
