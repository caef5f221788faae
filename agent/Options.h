// SPDX-License-Identifier: Apache-2.0
// The command line of the agent.
#pragma once

#include <optional>
#include <string>

namespace Vestrel {

enum class LogTarget { automatic, journal, syslog, standardError };

struct AgentOptions {
    int traceLevel = 1;
    LogTarget log = LogTarget::automatic;
    int driftInterval = 300; // in seconds; 0: never on time alone
};

// The exit statuses of the agent.
enum AgentExitStatus : int { ended = 0, failed = 1, wrongUsage = 2 };

// Reads the command line. Where the agent has nothing more to do (--help, --version, wrong usage),
// the text for the user is written and nothing is returned, with the exit status in `status`.
std::optional<AgentOptions> agentOptions(int argc, char** argv, int& status);

} // namespace Vestrel
