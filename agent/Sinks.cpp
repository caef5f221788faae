// SPDX-License-Identifier: Apache-2.0
// Where the agent's traces and log messages go.
#include "agent/Sinks.h"

#include "platform/zell/LogFacility.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/OneLine.h"
#include "platform/zell/StderrLines.h"
#include "platform/zell/TraceHandle.h"
#include "syslog/IntegritySyslogSm.h"

#include <sys/stat.h>
#include <syslog.h>

#include <optional>
#include <string>
#include <utility>

namespace Vestrel {

namespace {

// At once: a trace is there to say what came last.
void traceToStderr(const Zell::TraceLine& line) {
    Zell::StderrLines::putNow(std::string(line.handle) + " " + std::to_string(line.level) + " " +
                              Zell::oneLine(line.text) + "\n");
}

std::optional<std::pair<dev_t, ino_t>> identity(const char* path) {
    struct stat status; // NOLINT: filled by stat()
    if (stat(path, &status) == -1) {
        return std::nullopt;
    }
    return std::pair(status.st_dev, status.st_ino);
}

// So it does where a sender knows no other way to the kernel message socket than a link.
bool devLogIsTheKernelMessageSocket() {
    const auto log = identity("/dev/log");
    return log && log == identity(IntegritySyslogSm::socketPath);
}

// A message to oneself reaches nobody, and blocks for ever once the socket's queue is full.
Zell::LogSink notToMyself(Zell::LogSink sink) {
    return [sink = std::move(sink), other = Zell::stderrSink()](const Zell::LogMessage& message) {
        devLogIsTheKernelMessageSocket() ? other(message) : sink(message);
    };
}

Zell::LogSink logSink(LogTarget target) {
    switch (target) {
    case LogTarget::journal:
        return Zell::journalSink();
    case LogTarget::syslog:
        return notToMyself(Zell::syslogSink());
    case LogTarget::standardError:
        return Zell::stderrSink();
    case LogTarget::automatic:
        break;
    }
    return notToMyself(Zell::automaticSink());
}

Zell::LogSink observed(Zell::LogSink sink, Zell::LogSink observer) {
    if (!observer) {
        return sink;
    }
    return
        [sink = std::move(sink), observer = std::move(observer)](const Zell::LogMessage& message) {
            sink(message);
            observer(message);
        };
}

} // namespace

void sinksAre(const AgentOptions& options, Zell::LogSink observer) {
    Zell::traceLevelIs(options.traceLevel);
    Zell::traceSinkIs(traceToStderr);
    openlog("vestrel-agent", LOG_PID, LOG_DAEMON);
    Zell::LogFacility::sinkIs(observed(logSink(options.log), std::move(observer)));
}

} // namespace Vestrel
