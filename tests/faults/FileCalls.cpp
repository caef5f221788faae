// SPDX-License-Identifier: Apache-2.0
// Defines open, stat and fstat in the test executable, in front of libc's. They are declared here
// by themselves: the system's headers may define them.
#include "tests/faults/FileCalls.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdarg>

namespace Vestrel::Tests {

namespace {

struct Plan {
    std::string_view call; // empty: none
    std::size_t left = 0;  // calls up to the one that fails
    int error = 0;
    bool hasStruck = false;
};

constinit Plan plan;

bool strikes(std::string_view call, const char* path) {
    if (plan.call != call ||
        (path != nullptr && !std::string_view(path).starts_with("/etc/keys")) || plan.left == 0 ||
        --plan.left != 0) {
        return false;
    }
    plan.hasStruck = true;
    errno = plan.error;
    return true;
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

FailingFileCall::FailingFileCall(std::string_view call, std::size_t nth, int error) {
    plan = {call, nth, error, false};
}

FailingFileCall::~FailingFileCall() {
    plan.call = {};
}

bool FailingFileCall::hasStruck() {
    return plan.hasStruck;
}

} // namespace Vestrel::Tests

// Libraries find these only when the executable shows them.
#pragma GCC visibility push(default)

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, unsigned); // without a meaning unless a file is made
    va_end(arguments);
    static auto* const real = Vestrel::Tests::next<int(const char*, int, ...)>("open");
    return Vestrel::Tests::strikes("open", path) ? -1 : real(path, flags, mode);
}

int stat(const char* path, void* status) noexcept {
    static auto* const real = Vestrel::Tests::next<int(const char*, void*)>("stat");
    return Vestrel::Tests::strikes("stat", path) ? -1 : real(path, status);
}

int fstat(int descriptor, void* status) noexcept {
    static auto* const real = Vestrel::Tests::next<int(int, void*)>("fstat");
    return Vestrel::Tests::strikes("fstat", nullptr) ? -1 : real(descriptor, status);
}

} // extern "C"

#pragma GCC visibility pop
