// SPDX-License-Identifier: Apache-2.0
// Defines libkeyutils' functions in the test executable, so that every library beside it calls
// them.
#include "tests/fakes/Aside.h"
#include "tests/fakes/KeyService.h"
#include "tests/fakes/Misuse.h"

#include <keyutils.h>

using Vestrel::Tests::Aside;
using Vestrel::Tests::KeyService;
using Vestrel::Tests::misuse;

namespace {

/// Calls that the model knows nothing about must not reach the keys of the host.
[[noreturn]] void notModelled(const char* call) {
    misuse("KeyService", std::string(call) + " is not modelled");
}

} // namespace

// Libraries find the hooks only when the executable shows them, whatever the project's default is.
#pragma GCC visibility push(default)

extern "C" {

key_serial_t find_key_by_type_and_desc(const char* type, const char* desc,
                                       key_serial_t destringid) {
    const Aside aside;
    return KeyService::installed("find_key_by_type_and_desc").findKey(type, desc, destringid);
}

int keyctl_read_alloc(key_serial_t id, void** buffer) {
    const Aside aside;
    return KeyService::installed("keyctl_read_alloc").readAlloc(id, buffer);
}

long keyctl_describe(key_serial_t id, char* buffer, size_t buflen) {
    const Aside aside;
    return KeyService::installed("keyctl_describe").describe(id, buffer, buflen);
}

int keyctl_describe_alloc(key_serial_t id, char** buffer) {
    const Aside aside;
    return KeyService::installed("keyctl_describe_alloc").describeAlloc(id, buffer);
}

long keyctl_unlink(key_serial_t id, key_serial_t ringid) {
    const Aside aside;
    return KeyService::installed("keyctl_unlink").unlinkKey(id, ringid);
}

long keyctl_watch_key(key_serial_t id, int watchQueueFd, int watchId) {
    const Aside aside;
    return KeyService::installed("keyctl_watch_key").watchKey(id, watchQueueFd, watchId);
}

key_serial_t add_key(const char* type, const char* description, const void* payload, size_t plen,
                     key_serial_t ringid) {
    const Aside aside;
    return KeyService::installed("add_key").addKeyCall(type, description, payload, plen, ringid);
}

key_serial_t request_key(const char*, const char*, const char*, key_serial_t) {
    notModelled("request_key");
}

long keyctl(int, ...) {
    notModelled("keyctl");
}

key_serial_t keyctl_get_keyring_ID(key_serial_t, int) {
    notModelled("keyctl_get_keyring_ID");
}

long keyctl_update(key_serial_t, const void*, size_t) {
    notModelled("keyctl_update");
}

long keyctl_revoke(key_serial_t) {
    notModelled("keyctl_revoke");
}

long keyctl_invalidate(key_serial_t) {
    notModelled("keyctl_invalidate");
}

long keyctl_setperm(key_serial_t, key_perm_t) {
    notModelled("keyctl_setperm");
}

long keyctl_clear(key_serial_t) {
    notModelled("keyctl_clear");
}

long keyctl_link(key_serial_t, key_serial_t) {
    notModelled("keyctl_link");
}

long keyctl_search(key_serial_t, const char*, const char*, key_serial_t) {
    notModelled("keyctl_search");
}

long keyctl_read(key_serial_t, char*, size_t) {
    notModelled("keyctl_read");
}

} // extern "C"

#pragma GCC visibility pop
