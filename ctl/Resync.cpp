// SPDX-License-Identifier: Apache-2.0
// vestrelctl resync: has the agent rebuild everything from kernel and directories.
#include "ctl/AgentAnswer.h"
#include "ctl/AgentClient.h"
#include "ctl/Verbs.h"

#include <CLI/CLI.hpp>

namespace Vestrel {

namespace {

ExitStatus resync(Output& output) {
    const Json answer = AgentClient().ask("Resync");
    Json rows = Json::array();
    for (const std::string& difference : textsIn(answer, "differences")) {
        rows.push_back({{"difference", difference}});
    }
    output.lines("resync", rows, [](const Json& row) {
        return "had drifted apart: " + row.at("difference").get<std::string>();
    });
    return ExitStatus::done;
}

} // namespace

void addResync(CLI::App& app, Action& chosen) {
    app.add_subcommand("resync",
                       "Have the agent rebuild everything, and show what had drifted apart")
        ->callback([&chosen] { chosen = resync; });
}

} // namespace Vestrel
