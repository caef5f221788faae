// SPDX-License-Identifier: Apache-2.0
// Runs the command through a shell.
#include "tests/kernel/cases/CtlProcess.h"

#include "tests/support/Shell.h"

#include <cstdlib>

namespace Vestrel::Tests {

CtlRun ctl(const std::string& arguments) {
    const char* const given = std::getenv("VESTREL_CTL");
    const std::string program = given != nullptr ? given : VESTREL_CTL;
    Ended ended = shell(program + " " + arguments + " 2>&1");
    return {ended.status, std::move(ended.output)};
}

} // namespace Vestrel::Tests
