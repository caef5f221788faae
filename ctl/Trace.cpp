// SPDX-License-Identifier: Apache-2.0
// vestrelctl trace: the last trace events of the running agent.
#include "ctl/AgentClient.h"
#include "ctl/Verbs.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <thread>

namespace Vestrel {

namespace {

constexpr std::chrono::milliseconds followInterval{500};

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

// Until the reader of the output, the agent or this process is gone.
ExitStatus trace(bool isFollowed, Output& output) {
    AgentClient agent;
    std::uint64_t after = 0;
    output.lines("trace", everything(agent, after), lineOf);
    while (isFollowed && output.flush()) {
        std::this_thread::sleep_for(followInterval);
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
