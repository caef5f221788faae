// SPDX-License-Identifier: Apache-2.0
// Runs a command line, and what came of it.
#pragma once

#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string>
#include <system_error>

namespace Vestrel::Tests {

struct Ended {
    int status = -1; // -1: by a signal
    std::string output;
};

/// What it writes to standard output; "2>&1" adds the rest. Throws std::system_error when there is
/// no shell to run it.
inline Ended shell(const std::string& command) {
    std::FILE* const pipe = popen(command.c_str(), "re");
    if (pipe == nullptr) {
        throw std::system_error(errno, std::generic_category(), command);
    }
    Ended ended;
    std::array<char, 4096> buffer{};
    for (std::size_t got = 1; got != 0;) {
        got = std::fread(buffer.data(), 1, buffer.size(), pipe);
        ended.output.append(buffer.data(), got);
    }
    const int status = pclose(pipe);
    ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ended;
}

} // namespace Vestrel::Tests
