// SPDX-License-Identifier: Apache-2.0
// vestrelctl trace: the last trace events of the running agent.
#include "ctl/AgentAnswer.h"
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
constexpr int mostPieces = 16; // of what the agent had at one time, and more

std::string lineOf(const Json& event) {
    const auto text = [&](const char* name) { return textIn(event, name).get<std::string>(); };
    return text("time") + " " + text("handle") + " " + numberIn(event, "level").dump() + " " +
           text("text");
}

// One answer's events; the sequence number moves on behind them.
Json next(AgentClient& agent, std::uint64_t& after, bool& more) {
    const Json piece = agent.ask("Trace", {{"after", after}});
    const auto last = numberIn<std::uint64_t>(piece, "last");
    more = flagIn(piece, "more");
    if (more && last <= after) {
        notAsAgreed("there are more events, but none behind number " + std::to_string(after));
    }
    after = std::max(after, last);
    return listIn(piece, "events");
}

// What an agent traces faster than it is asked for is left to the next look.
Json everything(AgentClient& agent, std::uint64_t& after) {
    Json all = Json::array();
    bool more = true;
    for (int pieces = 0; more && pieces < mostPieces; ++pieces) {
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
