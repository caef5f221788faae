// SPDX-License-Identifier: Apache-2.0
// Stands before libc's open. It is declared here by itself: the system's header may define it.
#include "tests/keymodel/OpenCalls.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>

namespace {

int lastFlags = 0;

constexpr int atCurrentDirectory = -100;

} // namespace

extern "C" int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, unsigned); // without a meaning unless a file is made
    va_end(arguments);
    lastFlags = flags;
    return static_cast<int>(::syscall(SYS_openat, atCurrentDirectory, path, flags, mode));
}

namespace Vestrel::Tests {

int lastOpenFlags() {
    return lastFlags;
}

} // namespace Vestrel::Tests
