// SPDX-License-Identifier: Apache-2.0
// Scenarios worth keeping, by what happens in them.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Vestrel::Tests {

struct NamedScenario {
    const char* name;
    const char* steps; // as stepsOf() reads them

    friend std::ostream& operator<<(std::ostream& out, const NamedScenario& scenario) {
        return out << scenario.name;
    }
};

/// Ends of which the rules leave more than one way open, or that surprise.
const std::vector<NamedScenario>& namedScenarios();

/// Those that have to end the process with an assertion at their last step.
const std::vector<NamedScenario>& fatalScenarios();

} // namespace Vestrel::Tests
