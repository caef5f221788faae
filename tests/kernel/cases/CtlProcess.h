// SPDX-License-Identifier: Apache-2.0
// Runs vestrelctl as a process of its own.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace Vestrel::Tests {

/// What a run of the command came to.
struct CtlRun {
    int status = -1;
    std::string output; // of both kinds, as they came

    /// Of a result written as JSON: the rows of that name.
    nlohmann::json rows(const std::string& name) const {
        return nlohmann::json::parse(output).at(name);
    }
};

/// Runs it with these arguments, which a shell reads. The program is the environment's VESTREL_CTL,
/// or else the one built with the tests. Throws std::runtime_error when it cannot be run.
CtlRun ctl(const std::string& arguments);

} // namespace Vestrel::Tests
