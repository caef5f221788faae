// SPDX-License-Identifier: Apache-2.0
// Runs the command through a shell.
#include "tests/kernel/cases/CtlProcess.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace Vestrel::Tests {

CtlRun ctl(const std::string& arguments) {
    const char* const given = std::getenv("VESTREL_CTL");
    const std::string program = given != nullptr ? given : VESTREL_CTL;
    std::FILE* const pipe = popen((program + " " + arguments + " 2>&1").c_str(), "re");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run " + program);
    }
    CtlRun run;
    std::array<char, 4096> buffer{};
    for (std::size_t got = 1; got != 0;) {
        got = std::fread(buffer.data(), 1, buffer.size(), pipe);
        run.output.append(buffer.data(), got);
    }
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

} // namespace Vestrel::Tests
