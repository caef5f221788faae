// SPDX-License-Identifier: Apache-2.0
// The verbs of the command. Each has a source of its own, named after it.
#pragma once

#include "ctl/ExitStatus.h"
#include "ctl/Output.h"

#include <functional>

namespace CLI {
class App;
}

namespace Vestrel {

// What is to be done once the whole command line is known to be right. What leaves as an exception
// is reported, and the status is `failed`.
using Action = std::function<ExitStatus(Output&)>;

// Each adds its verb, with its arguments and options, to the command line; when that verb is on
// it, `chosen` becomes what it does. `chosen` must outlive the parsing.
void addCheck(CLI::App& app, Action& chosen);
void addFiles(CLI::App& app, Action& chosen);
void addInstall(CLI::App& app, Action& chosen);
void addKeys(CLI::App& app, Action& chosen);
void addMessages(CLI::App& app, Action& chosen);
void addPlan(CLI::App& app, Action& chosen);
void addRemove(CLI::App& app, Action& chosen);
void addResync(CLI::App& app, Action& chosen);
void addStatus(CLI::App& app, Action& chosen);
void addTrace(CLI::App& app, Action& chosen);

} // namespace Vestrel
