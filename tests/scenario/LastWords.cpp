// SPDX-License-Identifier: Apache-2.0
// The copy writes into a pipe and leaves no core.
#include "tests/scenario/LastWords.h"

#include "platform/zell/OwnedFd.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <system_error>

namespace Vestrel::Tests {

namespace {

template <class Result>
Result checked(Result result, const char* what) {
    if (result == -1) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

[[noreturn]] void actAlone(const std::function<void()>& act, int errors) noexcept {
    constexpr int exception = 2;
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    ::dup2(errors, STDERR_FILENO);
    try {
        act();
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        ::_exit(exception);
    }
    ::_exit(0);
}

std::string readToEnd(int descriptor) {
    constexpr std::size_t chunk = 4096;
    std::string text;
    std::array<char, chunk> buffer{};
    while (const ssize_t count = checked(::read(descriptor, buffer.data(), chunk), "read")) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

} // namespace

std::string lastWords(const std::function<void()>& act) {
    int ends[2] = {-1, -1};
    checked(::pipe2(ends, O_CLOEXEC), "pipe2");
    const Zell::OwnedFd readEnd(ends[0]);
    Zell::OwnedFd writeEnd(ends[1]);
    const pid_t copy = checked(::fork(), "fork");
    if (copy == 0) {
        actAlone(act, writeEnd.get());
    }
    writeEnd.reset();
    const std::string words = readToEnd(readEnd.get());
    int status = 0;
    checked(::waitpid(copy, &status, 0), "waitpid");
    const bool isAborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    return isAborted ? words : "status " + std::to_string(status) + ", " + words;
}

} // namespace Vestrel::Tests
