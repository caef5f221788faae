// SPDX-License-Identifier: Apache-2.0
// The shared library's side of the calls.
#include "tests/fakes/Probe.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace Vestrel::Tests::Probe {

key_serial_t findKeyring(const char* name) {
    return ::find_key_by_type_and_desc("keyring", name, 0);
}

std::optional<std::vector<std::uint8_t>> readAlloc(key_serial_t ring) {
    void* buffer = nullptr;
    const int size = ::keyctl_read_alloc(ring, &buffer);
    if (size == -1) {
        return std::nullopt;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(buffer);
    std::vector<std::uint8_t> payload(bytes, bytes + size);
    std::free(buffer);
    return payload;
}

long describeSize(key_serial_t key) {
    return ::keyctl_describe(key, nullptr, 0);
}

std::optional<std::string> describe(key_serial_t key) {
    std::string text(256, '\0');
    const long size = ::keyctl_describe(key, text.data(), text.size());
    if (size == -1) {
        return std::nullopt;
    }
    return text.substr(0, static_cast<std::size_t>(size) - 1);
}

std::optional<std::string> describeAlloc(key_serial_t key) {
    char* buffer = nullptr;
    const int size = ::keyctl_describe_alloc(key, &buffer);
    if (size == -1) {
        return std::nullopt;
    }
    std::string text(buffer, static_cast<std::size_t>(size));
    std::free(buffer);
    return text;
}

long unlinkKey(key_serial_t key, key_serial_t ring) {
    return ::keyctl_unlink(key, ring);
}

long watchKey(key_serial_t ring, int descriptor, int watchId) {
    return ::keyctl_watch_key(ring, descriptor, watchId);
}

key_serial_t addKey(const std::string& payload, key_serial_t ring, const char* description,
                    const char* type) {
    return ::add_key(type, description, payload.data(), payload.size(), ring);
}

key_serial_t addNothing(std::size_t size, key_serial_t ring) {
    return ::add_key("asymmetric", nullptr, nullptr, size, ring);
}

long linkKey(key_serial_t key, key_serial_t ring) {
    return ::keyctl_link(key, ring);
}

int readAllocIntoNothing(key_serial_t ring) {
    return ::keyctl_read_alloc(ring, nullptr);
}

int pipe2(std::array<int, 2>& ends, int flags) {
    return ::pipe2(ends.data(), flags);
}

int setQueueSize(int descriptor, unsigned long notes) {
    return ::ioctl(descriptor, 0x5760, notes);
}

int inotifyInit1(int flags) {
    return ::inotify_init1(flags);
}

int inotifyAddWatch(int descriptor, const char* path, unsigned mask) {
    return ::inotify_add_watch(descriptor, path, mask);
}

int inotifyRmWatch(int descriptor, int watch) {
    return ::inotify_rm_watch(descriptor, watch);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    return ::read(descriptor, buffer, size);
}

int close(int descriptor) {
    return ::close(descriptor);
}

int socket(int domain, int type, int protocol) {
    return ::socket(domain, type, protocol);
}

int bind(int descriptor, const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    return ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int unlink(const char* path) {
    return ::unlink(path);
}

} // namespace Vestrel::Tests::Probe
