// SPDX-License-Identifier: Apache-2.0
// Defines the watched system calls in the test executable, in front of libc's.
#include "tests/fakes/Aside.h"
#include "tests/fakes/KeyService.h"
#include "tests/fakes/Misuse.h"
#include "tests/fakes/RealCalls.h"
#include "tests/fakes/SystemCalls.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

using Vestrel::Tests::Answer;
using Vestrel::Tests::Aside;
using Vestrel::Tests::KeyService;
using Vestrel::Tests::misuse;
using Vestrel::Tests::SystemCalls;
namespace Real = Vestrel::Tests::Real;

namespace {

constexpr int notificationPipe = O_EXCL; // the kernel gives this bit a second name for pipe2
constexpr unsigned long setQueueSize = 0x5760;

std::string hex(unsigned long value) {
    char text[2 * sizeof value + 3];
    std::snprintf(text, sizeof text, "0x%lx", value);
    return text;
}

std::string hexFlags(int flags) {
    return hex(static_cast<unsigned>(flags));
}

std::string text(long value) {
    return std::to_string(value);
}

/// Records the call and returns its prepared answer. `arguments` gives the recorded text and is
/// run only when it is wanted: without a SystemCalls object a hook allocates nothing.
template <typename Arguments>
std::optional<Answer> answered(const char* name, const Arguments& arguments) {
    SystemCalls* calls = SystemCalls::current();
    if (calls == nullptr) {
        return std::nullopt;
    }
    const int before = errno;
    if (calls->isRecording()) {
        calls->record(std::string(name) + " " + arguments());
    }
    const auto answer = calls->scripted(name);
    errno = answer && answer->error != 0 ? answer->error : before;
    return answer;
}

const char* redirected(const char* path) {
    const SystemCalls* calls = SystemCalls::current();
    return calls == nullptr || path == nullptr ? path : calls->redirected(path);
}

bool isUnixPath(const sockaddr* address, socklen_t size) {
    return address != nullptr && size > sizeof(sa_family_t) && address->sa_family == AF_UNIX;
}

std::string pathOf(const sockaddr* address, socklen_t size) {
    const auto* bytes = reinterpret_cast<const char*>(address) + offsetof(sockaddr_un, sun_path);
    return {bytes, strnlen(bytes, size - offsetof(sockaddr_un, sun_path))};
}

void noteAddress(const sockaddr* address, socklen_t size) {
    SystemCalls* calls = SystemCalls::current();
    if (calls != nullptr && calls->isRecording() && address != nullptr) {
        calls->recordAddress({reinterpret_cast<const std::uint8_t*>(address), size});
    }
}

int bindTo(int descriptor, const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        misuse("SystemCalls", "the path " + path + " is too long for a socket");
    }
    path.copy(address.sun_path, path.size());
    return Real::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int sizeQueue(int descriptor, unsigned long notes) {
    const auto queue = KeyService::installed("ioctl IOC_WATCH_QUEUE_SET_SIZE").queueOf(descriptor);
    if (queue == nullptr) {
        misuse("KeyService", "IOC_WATCH_QUEUE_SET_SIZE on " + std::to_string(descriptor) +
                                 ", which is not a notification pipe");
    }
    const int error = queue->setSize(notes);
    if (error != 0) {
        errno = error;
    }
    return error == 0 ? 0 : -1;
}

void noteClosed(int descriptor) {
    KeyService* keys = KeyService::current();
    if (keys != nullptr) {
        const int error = errno;
        keys->noteClosed(descriptor);
        errno = error;
    }
}

ssize_t readFromModels(int descriptor, void* buffer, std::size_t size) {
    const KeyService* keys = KeyService::current();
    const auto queue = keys == nullptr ? nullptr : keys->queueOf(descriptor);
    return queue == nullptr ? Real::read(descriptor, buffer, size) : queue->read(buffer, size);
}

} // namespace

// Libraries find the hooks only when the executable shows them, whatever the project's default is.
#pragma GCC visibility push(default)

extern "C" {

int pipe2(int descriptors[2], int flags) noexcept {
    const Aside aside;
    if (const auto answer = answered("pipe2", [&] { return hexFlags(flags); })) {
        return static_cast<int>(answer->value);
    }
    if ((flags & notificationPipe) != 0) {
        return KeyService::installed("pipe2 O_NOTIFICATION_PIPE").openQueue(descriptors, flags);
    }
    return Real::pipe2(descriptors, flags);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    const Aside aside;
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto number = reinterpret_cast<unsigned long>(argument);
    if (const auto answer = answered("ioctl", [&] {
            return text(descriptor) + " " + hex(request) + " " + std::to_string(number);
        })) {
        return static_cast<int>(answer->value);
    }
    if (request == setQueueSize) {
        return sizeQueue(descriptor, number);
    }
    return Real::ioctl(descriptor, request, argument);
}

int inotify_init1(int flags) noexcept {
    const Aside aside;
    if (const auto answer = answered("inotify_init1", [&] { return hexFlags(flags); })) {
        return static_cast<int>(answer->value);
    }
    return Real::inotifyInit1(flags);
}

int inotify_add_watch(int descriptor, const char* path, uint32_t mask) noexcept {
    const Aside aside;
    if (const auto answer = answered(
            "inotify_add_watch", [&] { return text(descriptor) + " " + path + " " + hex(mask); })) {
        return static_cast<int>(answer->value);
    }
    return Real::inotifyAddWatch(descriptor, path, mask);
}

int inotify_rm_watch(int descriptor, int watch) noexcept {
    const Aside aside;
    if (const auto answer =
            answered("inotify_rm_watch", [&] { return text(descriptor) + " " + text(watch); })) {
        return static_cast<int>(answer->value);
    }
    return Real::inotifyRmWatch(descriptor, watch);
}

ssize_t read(int descriptor, void* buffer, size_t size) {
    const Aside aside;
    if (const auto answer =
            answered("read", [&] { return text(descriptor) + " " + std::to_string(size); })) {
        return answer->value;
    }
    SystemCalls* calls = SystemCalls::current();
    if (calls != nullptr) {
        if (const auto fed = calls->fedRead(descriptor, buffer, size)) {
            return *fed;
        }
    }
    return readFromModels(descriptor, buffer, size);
}

// What `read` becomes in code built with _FORTIFY_SOURCE when only the buffer's size is known.
ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t room) {
    if (size > room) {
        misuse("SystemCalls", "read into a buffer that is too small");
    }
    return read(descriptor, buffer, size);
}

int close(int descriptor) {
    const Aside aside;
    const auto answer = answered("close", [&] { return text(descriptor); });
    const int scriptedError = errno;
    const int result = Real::close(descriptor);
    if (result == 0) {
        noteClosed(descriptor);
    }
    if (!answer) {
        return result;
    }
    errno = scriptedError;
    return static_cast<int>(answer->value);
}

int socket(int domain, int type, int protocol) noexcept {
    const Aside aside;
    if (const auto answer = answered(
            "socket", [&] { return text(domain) + " " + hexFlags(type) + " " + text(protocol); })) {
        return static_cast<int>(answer->value);
    }
    return Real::socket(domain, type, protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
    const Aside aside;
    const bool hasPath = isUnixPath(address, size);
    noteAddress(address, size);
    if (const auto answer = answered("bind", [&] {
            return text(descriptor) + " " + (hasPath ? pathOf(address, size) : "?") + " " +
                   std::to_string(size);
        })) {
        return static_cast<int>(answer->value);
    }
    if (hasPath && SystemCalls::current() != nullptr) {
        const std::string path = pathOf(address, size);
        const std::string used = redirected(path.c_str());
        if (used != path) {
            return bindTo(descriptor, used);
        }
    }
    return Real::bind(descriptor, address, size);
}

int unlink(const char* path) noexcept {
    const Aside aside;
    if (const auto answer = answered("unlink", [&] { return std::string(path); })) {
        return static_cast<int>(answer->value);
    }
    return Real::unlink(redirected(path));
}

} // extern "C"

#pragma GCC visibility pop
