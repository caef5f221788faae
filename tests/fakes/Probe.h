// SPDX-License-Identifier: Apache-2.0
// Calls made from a shared library, as the product's libraries make them.
#pragma once

#include <keyutils.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vestrel::Tests::Probe {

// Each is the call of its name; failures are -1 or empty, with errno as the call left it.
key_serial_t findKeyring(const char* name);
std::optional<std::vector<std::uint8_t>> readAlloc(key_serial_t ring);
long describeSize(key_serial_t key);
std::optional<std::string> describe(key_serial_t key);
std::optional<std::string> describeAlloc(key_serial_t key);
long unlinkKey(key_serial_t key, key_serial_t ring);
long watchKey(key_serial_t ring, int descriptor, int watchId);
key_serial_t addKey(const std::string& payload, key_serial_t ring, const char* description = "",
                    const char* type = "asymmetric");
key_serial_t addNothing(std::size_t size, key_serial_t ring);
long linkKey(key_serial_t key, key_serial_t ring);
int readAllocIntoNothing(key_serial_t ring);

int pipe2(std::array<int, 2>& ends, int flags);
int setQueueSize(int descriptor, unsigned long notes);
int inotifyInit1(int flags);
int inotifyAddWatch(int descriptor, const char* path, unsigned mask);
int inotifyRmWatch(int descriptor, int watch);
ssize_t read(int descriptor, void* buffer, std::size_t size);
int close(int descriptor);
int socket(int domain, int type, int protocol);
int bind(int descriptor, const char* path);
int unlink(const char* path);

} // namespace Vestrel::Tests::Probe
