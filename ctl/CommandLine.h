// SPDX-License-Identifier: Apache-2.0
// The command line of vestrelctl.
#pragma once

#include "ctl/Verbs.h"

#include <optional>
#include <ostream>

namespace Vestrel {

// What a command line asks for.
struct Command {
    Action action;
    bool isJson = false;
};

// Reads the command line and does nothing yet. Where nothing is to be done (--help, --version,
// wrong usage), the text for the user is written and nothing is returned, with the exit status in
// `status`.
std::optional<Command> commandOf(int argc, const char* const* argv, std::ostream& out,
                                 std::ostream& err, ExitStatus& status);

// Reads the command line, does what it says, and returns the exit status of the process.
int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace Vestrel
