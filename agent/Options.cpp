// SPDX-License-Identifier: Apache-2.0
// The command line of the agent.
#include "agent/Options.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <map>

namespace Vestrel {

namespace {

constexpr int longestInterval = 86400;

const std::map<std::string, LogTarget> logTargets{{"auto", LogTarget::automatic},
                                                  {"journal", LogTarget::journal},
                                                  {"syslog", LogTarget::syslog},
                                                  {"stderr", LogTarget::standardError}};

} // namespace

std::optional<AgentOptions> agentOptions(int argc, char** argv, int& status) {
    AgentOptions options;
    std::string log = "auto";
    CLI::App app("Keeps the kernel's integrity keyrings in step with certificate directories.",
                 "vestrel-agent");
    app.set_version_flag("--version", std::string("vestrel-agent ") + VESTREL_VERSION);
    app.add_option("--trace", options.traceLevel, "Trace to stderr up to this level: 0 to 5")
        ->check(CLI::Range(0, 5))
        ->capture_default_str();
    app.add_option("--log", log, "Where log messages go: auto, journal, syslog or stderr")
        ->check(CLI::IsMember(logTargets))
        ->capture_default_str();
    app.add_option("--drift-interval", options.driftInterval,
                   "Compare record, kernel and directories every so many seconds; 0: only when "
                   "events were lost")
        ->check(CLI::Range(0, longestInterval))
        ->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& end) {
        status = app.exit(end) == 0 ? ended : wrongUsage;
        if (status == ended && !std::cout.flush()) {
            std::fputs("vestrel-agent: the text could not be written\n", stderr);
            status = failed;
        }
        return std::nullopt;
    }
    options.log = logTargets.at(log);
    return options;
}

} // namespace Vestrel
