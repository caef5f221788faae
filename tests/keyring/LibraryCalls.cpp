// SPDX-License-Identifier: Apache-2.0
// Defines epoll_ctl and readdir in the test executable, in front of libc's.
#include "tests/keyring/LibraryCalls.h"

#include "tests/fakes/SystemCalls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace Vestrel::Tests {

namespace {

constinit bool watchesAreRecorded = false;
constinit int directoryError = 0;
constinit std::size_t readableEntries = 0;

const char* nameOf(int operation) {
    switch (operation) {
    case EPOLL_CTL_ADD:
        return "ADD";
    case EPOLL_CTL_MOD:
        return "MOD";
    default:
        return "DEL";
    }
}

void noteWatch(int operation, int descriptor) {
    SystemCalls* const calls = SystemCalls::current();
    if (watchesAreRecorded && calls != nullptr) {
        calls->record("epoll_ctl " + std::string(nameOf(operation)) + " " +
                      std::to_string(descriptor));
    }
}

} // namespace

RecordedWatches::RecordedWatches() {
    watchesAreRecorded = true;
}

RecordedWatches::~RecordedWatches() {
    watchesAreRecorded = false;
}

UnreadableDirectories::UnreadableDirectories(int error, std::size_t nth) {
    directoryError = error;
    readableEntries = nth - 1;
}

UnreadableDirectories::~UnreadableDirectories() {
    directoryError = 0;
}

} // namespace Vestrel::Tests

// Libraries find the hooks only when the executable shows them.
#pragma GCC visibility push(default)

extern "C" {

int epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) noexcept {
    Vestrel::Tests::noteWatch(operation, descriptor);
    return static_cast<int>(syscall(SYS_epoll_ctl, epoll, operation, descriptor, event));
}

dirent* readdir(DIR* directory) {
    using Function = dirent* (*)(DIR*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "readdir"));
    if (Vestrel::Tests::directoryError == 0) {
        return real(directory);
    }
    if (Vestrel::Tests::readableEntries > 0) {
        --Vestrel::Tests::readableEntries;
        return real(directory);
    }
    errno = Vestrel::Tests::directoryError;
    return nullptr;
}

} // extern "C"

#pragma GCC visibility pop
