// SPDX-License-Identifier: Apache-2.0
// From the words of the command line to a verb, and from its outcome to the exit status.
#include "ctl/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <string>

namespace Vestrel {

namespace {

ExitStatus perform(const Action& action, Output& output) {
    try {
        return action(output);
    } catch (const std::exception& failure) {
        output.complaint(failure.what());
        return ExitStatus::failed;
    }
}

// What nobody takes is named before what is missing or wrong for that reason.
int explained(const CLI::App& app, const CLI::ParseError& end, std::ostream& out,
              std::ostream& err) {
    const bool isAnswer = end.get_exit_code() == 0; // that of --help or --version
    auto unexpected = app.remaining(true);
    std::ranges::reverse(unexpected); // which the library's error expects
    return isAnswer || unexpected.empty() ? app.exit(end, out, err)
                                          : app.exit(CLI::ExtrasError(unexpected), out, err);
}

// Success with a result that nobody got is none.
ExitStatus handedOn(ExitStatus status, Output& output) {
    if (output.flush()) {
        return status;
    }
    output.complaint("the result could not be written");
    return ExitStatus::failed;
}

} // namespace

std::optional<Command> commandOf(int argc, const char* const* argv, std::ostream& out,
                                 std::ostream& err, ExitStatus& status) {
    Command command;
    Action& action = command.action;
    CLI::App app("Looks after the kernel's integrity keyrings and their certificate directories.",
                 "vestrelctl");
    app.set_version_flag("--version", std::string("vestrelctl ") + VESTREL_VERSION);
    app.add_flag("--json", command.isJson, "Write the result as one line of JSON");
    app.require_subcommand(1);
    app.fallthrough(); // so that --json may stand behind the verb as well
    addCheck(app, action);
    addFiles(app, action);
    addInstall(app, action);
    addKeys(app, action);
    addMessages(app, action);
    addPlan(app, action);
    addRemove(app, action);
    addResync(app, action);
    addStatus(app, action);
    addTrace(app, action);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& end) {
        status = explained(app, end, out, err) == 0 ? ExitStatus::done : ExitStatus::wrongUsage;
        return std::nullopt;
    }
    return command;
}

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    Output output(out, err);
    ExitStatus status = ExitStatus::done;
    if (const auto command = commandOf(argc, argv, out, err, status)) {
        output.jsonIs(command->isJson);
        status = perform(command->action, output);
    }
    return static_cast<int>(handedOn(status, output));
}

} // namespace Vestrel
