// SPDX-License-Identifier: Apache-2.0
// The system calls behind the test's hooks: the next definition in the link order of the process.
#pragma once

#include <sys/socket.h>

#include <cstddef>

namespace Vestrel::Tests::Real {

// Each is the call of its name, with its errno. Usable before main and inside a hook: nothing is
// allocated here.
int pipe2(int descriptors[2], int flags);
int ioctl(int descriptor, unsigned long request, void* argument);
int inotifyInit1(int flags);
int inotifyAddWatch(int descriptor, const char* path, unsigned mask);
int inotifyRmWatch(int descriptor, int watch);
ssize_t read(int descriptor, void* buffer, std::size_t size);
int close(int descriptor);
int socket(int domain, int type, int protocol);
int bind(int descriptor, const sockaddr* address, socklen_t size);
int unlink(const char* path);

} // namespace Vestrel::Tests::Real
