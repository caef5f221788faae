// SPDX-License-Identifier: Apache-2.0
// Looks the system calls up behind the executable's own definitions.
#include "tests/fakes/RealCalls.h"

#include "tests/fakes/Misuse.h"

#include <dlfcn.h>

namespace Vestrel::Tests::Real {

namespace {

/// Under a sanitizer this finds the sanitizer's interceptor, which is wanted.
template <typename Function>
Function* next(Function*& known, const char* name) {
    if (known == nullptr) {
        known = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
    }
    if (known == nullptr) {
        misuse("RealCalls", name);
    }
    return known;
}

using Pipe2 = int(int*, int);
using Ioctl = int(int, unsigned long, ...);
using InotifyInit1 = int(int);
using InotifyAddWatch = int(int, const char*, unsigned);
using InotifyRmWatch = int(int, int);
using Read = ssize_t(int, void*, std::size_t);
using Close = int(int);
using Socket = int(int, int, int);
using Bind = int(int, const sockaddr*, socklen_t);
using Unlink = int(const char*);

// Plain pointers without initialisation code: hooks run before the constructors of this program.
constinit Pipe2* pipe2Known = nullptr;
constinit Ioctl* ioctlKnown = nullptr;
constinit InotifyInit1* inotifyInit1Known = nullptr;
constinit InotifyAddWatch* inotifyAddWatchKnown = nullptr;
constinit InotifyRmWatch* inotifyRmWatchKnown = nullptr;
constinit Read* readKnown = nullptr;
constinit Close* closeKnown = nullptr;
constinit Socket* socketKnown = nullptr;
constinit Bind* bindKnown = nullptr;
constinit Unlink* unlinkKnown = nullptr;

} // namespace

int pipe2(int descriptors[2], int flags) {
    return next(pipe2Known, "pipe2")(descriptors, flags);
}

int ioctl(int descriptor, unsigned long request, void* argument) {
    return next(ioctlKnown, "ioctl")(descriptor, request, argument);
}

int inotifyInit1(int flags) {
    return next(inotifyInit1Known, "inotify_init1")(flags);
}

int inotifyAddWatch(int descriptor, const char* path, unsigned mask) {
    return next(inotifyAddWatchKnown, "inotify_add_watch")(descriptor, path, mask);
}

int inotifyRmWatch(int descriptor, int watch) {
    return next(inotifyRmWatchKnown, "inotify_rm_watch")(descriptor, watch);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    return next(readKnown, "read")(descriptor, buffer, size);
}

int close(int descriptor) {
    return next(closeKnown, "close")(descriptor);
}

int socket(int domain, int type, int protocol) {
    return next(socketKnown, "socket")(domain, type, protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t size) {
    return next(bindKnown, "bind")(descriptor, address, size);
}

int unlink(const char* path) {
    return next(unlinkKnown, "unlink")(path);
}

} // namespace Vestrel::Tests::Real
