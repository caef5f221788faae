// SPDX-License-Identifier: Apache-2.0
// Runs vestrelctl as a process of its own.
#pragma once

#include "survey/JsonText.h"

#include <string>

namespace Vestrel::Tests {

/// What a run of the command came to.
struct CtlRun {
    int status = -1;
    std::string output; // of both kinds, as they came

    /// Of a result written as JSON: the rows of that name.
    Json rows(const std::string& name) const {
        bool isTooDeep = false;
        return jsonValue(output, 16, isTooDeep).at(name);
    }
};

/// Runs it with these arguments, which a shell reads. The program is the environment's VESTREL_CTL,
/// or else the one built with the tests. Throws std::system_error when there is no shell.
CtlRun ctl(const std::string& arguments);

/// Runs a command line that names vestrelctl, in that directory. The output has a line "its own end
/// was STATUS", whatever else the line does with it.
CtlRun typed(const std::string& command, const std::string& directory);

} // namespace Vestrel::Tests
