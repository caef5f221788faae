// SPDX-License-Identifier: Apache-2.0
// Runs the command through a shell.
#include "tests/kernel/cases/CtlProcess.h"

#include "tests/support/Shell.h"

#include <cstdlib>

namespace Vestrel::Tests {

namespace {

std::string program() {
    const char* const given = std::getenv("VESTREL_CTL");
    return given != nullptr ? given : VESTREL_CTL;
}

CtlRun ran(const std::string& command) {
    Ended ended = shell(command);
    return {ended.status, std::move(ended.output)};
}

} // namespace

CtlRun ctl(const std::string& arguments) {
    return ran(program() + " " + arguments + " 2>&1");
}

CtlRun typed(const std::string& command, const std::string& directory) {
    return ran("exec 3>&1 2>&1; vestrelctl() { " + program() +
               " \"$@\"; set -- $?; echo \"its own end was $1\" >&3; return \"$1\"; }; cd " +
               directory + " && " + command);
}

} // namespace Vestrel::Tests
