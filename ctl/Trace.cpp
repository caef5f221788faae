// SPDX-License-Identifier: Apache-2.0
// vestrelctl trace: the last trace events of the running agent.
#include "ctl/AgentClient.h"
#include "ctl/Verbs.h"

#include <CLI/CLI.hpp>

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <memory>
#include <stdexcept>

namespace Vestrel {

namespace {

constexpr int followIntervalMilliseconds = 500;

std::string lineOf(const Json& event) {
    return event["time"].get<std::string>() + " " + event["handle"].get<std::string>() + " " +
           event["level"].dump() + " " + event["text"].get<std::string>();
}

// One answer's events; the sequence number moves on behind them.
Json next(AgentClient& agent, std::uint64_t& after, bool& more) {
    const Json piece = agent.ask("Trace", {{"after", after}});
    after = std::max(after, piece["last"].get<std::uint64_t>());
    more = piece["more"].get<bool>();
    return piece["events"];
}

Json everything(AgentClient& agent, std::uint64_t& after) {
    Json all = Json::array();
    for (bool more = true; more;) {
        for (Json& event : next(agent, after, more)) {
            all.push_back(std::move(event));
        }
    }
    return all;
}

// Waits for the next look; ends like a write to it when the reader of the output is gone, which no
// write finds out while nothing happens.
void pause() {
    pollfd output{STDOUT_FILENO, 0, 0}; // no events: only that it is closed
    if (poll(&output, 1, followIntervalMilliseconds) > 0) {
        raise(SIGPIPE);
        throw std::runtime_error("nobody reads the result any more"); // whoever ignores the signal
    }
}

// Until the reader of the output, the agent or this process is gone.
ExitStatus trace(bool isFollowed, Output& output) {
    AgentClient agent;
    std::uint64_t after = 0;
    output.lines("trace", everything(agent, after), lineOf);
    while (isFollowed && output.flush()) {
        pause();
        const Json events = everything(agent, after);
        if (!events.empty()) {
            output.lines("trace", events, lineOf);
        }
    }
    return ExitStatus::done;
}

} // namespace

void addTrace(CLI::App& app, Action& chosen) {
    CLI::App* const verb =
        app.add_subcommand("trace", "Show the last trace events of the running agent");
    const auto isFollowed = std::make_shared<bool>(false);
    verb->add_flag("--follow", *isFollowed, "Go on with those that come");
    verb->callback([isFollowed, &chosen] {
        chosen = [isFollowed](Output& output) { return trace(*isFollowed, output); };
    });
}

} // namespace Vestrel
