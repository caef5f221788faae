// SPDX-License-Identifier: Apache-2.0
// The model's answers to the calls of libkeyutils and to those that make notification pipes.
#include "tests/fakes/KeyService.h"
#include "tests/fakes/Misuse.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace Vestrel::Tests {

namespace {

constexpr const char* who = "KeyService";
constexpr std::size_t mostPayload = 1024 * 1024 - 1;
constexpr std::size_t mostCertificate = 65535;
constexpr int mostWatchId = 255;
constexpr key_serial_t requestorKeyring = -8; // libkeyutils' header has no name for it

template <typename Result>
Result failed(int error) {
    errno = error;
    return Result{-1};
}

std::string orNull(const char* text) {
    return text == nullptr ? "NULL" : text;
}

void refuseNull(std::string_view call, const void* pointer) {
    if (pointer == nullptr) {
        misuse(who, std::string(call) + " was given a null pointer");
    }
}

/// Below zero stand names of the caller's own keyrings, among them the value of a failed look-up.
void refuseNamedKeyring(std::string_view call, key_serial_t serial) {
    if (serial < 0) {
        misuse(who, std::string(call) + " was given the serial " + std::to_string(serial));
    }
}

void refuseForeignKey(const char* type, const char* description) {
    refuseNull("add_key", type);
    if (std::strcmp(type, "asymmetric") != 0) {
        misuse(who, std::string("add_key of the type ") + type);
    }
    if (description != nullptr && *description != '\0') {
        misuse(who, "add_key with a description: the kernel is to propose it");
    }
}

/// A copy from malloc with a NUL behind it, as libkeyutils hands out its buffers.
void* allocated(const void* bytes, std::size_t size) {
    auto* copy = static_cast<char*>(std::malloc(size + 1));
    if (copy == nullptr) {
        misuse(who, "out of memory");
    }
    if (size != 0) {
        std::memcpy(copy, bytes, size);
    }
    copy[size] = '\0';
    return copy;
}

} // namespace

bool KeyService::fails(std::string_view call) {
    const auto answer = script_.take(call);
    if (answer) {
        errno = answer->error;
    }
    return answer.has_value();
}

KeyService::Key* KeyService::lookUp(key_serial_t serial, std::uint32_t permission, int& error) {
    const auto found = keys_.find(serial);
    if (serial < 1 || found == keys_.end()) {
        error = serial < 1 ? EINVAL : ENOKEY;
        return nullptr;
    }
    Key& key = found->second;
    error = key.validity();
    if (error == 0 && (key.attributes.perm & permission) == 0) {
        error = EACCES;
    }
    return error == 0 ? &key : nullptr;
}

KeyService::Key* KeyService::lookUpForDescribe(key_serial_t serial, int& error) {
    switch (serial) {
    case KEY_SPEC_THREAD_KEYRING:
        if (threadKeyring_ != 0) {
            return lookUp(threadKeyring_, KEY_USR_VIEW, error);
        }
        [[fallthrough]];
    case KEY_SPEC_PROCESS_KEYRING:
    case KEY_SPEC_REQKEY_AUTH_KEY:
    case requestorKeyring:
        error = ENOKEY;
        return nullptr;
    // The kernel makes the next three when they are asked for.
    case KEY_SPEC_SESSION_KEYRING:
        return lookUp(keyring("_ses"), KEY_USR_VIEW, error);
    case KEY_SPEC_USER_KEYRING:
        return lookUp(keyring("_uid.0"), KEY_USR_VIEW, error);
    case KEY_SPEC_USER_SESSION_KEYRING:
        return lookUp(keyring("_uid_ses.0"), KEY_USR_VIEW, error);
    default:
        return lookUp(serial, KEY_USR_VIEW, error);
    }
}

key_serial_t KeyService::findKey(const char* type, const char* description,
                                 key_serial_t destination) {
    record("find_key_by_type_and_desc " + orNull(type) + " " + orNull(description) + " " +
           std::to_string(destination));
    refuseNull("find_key_by_type_and_desc", type);
    refuseNull("find_key_by_type_and_desc", description);
    if (destination != 0) {
        misuse(who, "find_key_by_type_and_desc would link what it finds");
    }
    if (fails("find_key_by_type_and_desc")) {
        return -1;
    }
    int cause = ENOKEY; // or what the library's own describing of a dead keyring leaves
    for (const auto& [serial, key] : keys_) {
        const bool isVisible = (key.attributes.perm & KEY_USR_VIEW) != 0;
        if (!isVisible || key.attributes.type != type || key.description != description) {
            continue;
        }
        if (key.validity() == 0) {
            return serial;
        }
        cause = key.validity();
    }
    return failed<key_serial_t>(cause);
}

int KeyService::readAlloc(key_serial_t key, void** buffer) {
    record("keyctl_read_alloc " + std::to_string(key));
    refuseNull("keyctl_read_alloc", buffer);
    refuseNamedKeyring("keyctl_read_alloc", key);
    if (fails("keyctl_read_alloc")) {
        return -1;
    }
    const auto found = keys_.find(key);
    if (found == keys_.end()) {
        return failed<int>(ENOKEY);
    }
    const Key& ring = found->second;
    if ((ring.attributes.perm & KEY_USR_READ) == 0) {
        return failed<int>(EACCES);
    }
    if (ring.validity() != 0 || !ring.isKeyring()) {
        return failed<int>(ring.validity() != 0 ? ring.validity() : EOPNOTSUPP);
    }
    const auto payload = readable(ring);
    *buffer = allocated(payload.data(), payload.size());
    return static_cast<int>(payload.size());
}

std::vector<std::uint8_t> KeyService::readable(const Key& ring) const {
    if (ring.scriptedPayload) {
        return *ring.scriptedPayload;
    }
    const auto* first = reinterpret_cast<const std::uint8_t*>(ring.members.data());
    return {first, first + ring.members.size() * sizeof(key_serial_t)};
}

long KeyService::describe(key_serial_t key, char* buffer, std::size_t size) {
    record("keyctl_describe " + std::to_string(key) + " " + std::to_string(size));
    if (size != 0) {
        refuseNull("keyctl_describe", buffer);
    }
    if (fails("keyctl_describe")) {
        return -1;
    }
    int error = 0;
    const Key* described = lookUpForDescribe(key, error);
    if (described == nullptr) {
        return failed<long>(error);
    }
    const std::string text = described->text();
    if (buffer != nullptr && size > text.size()) {
        std::memcpy(buffer, text.c_str(), text.size() + 1);
    }
    return static_cast<long>(text.size() + 1);
}

int KeyService::describeAlloc(key_serial_t key, char** buffer) {
    record("keyctl_describe_alloc " + std::to_string(key));
    refuseNull("keyctl_describe_alloc", buffer);
    if (fails("keyctl_describe_alloc")) {
        return -1;
    }
    int error = 0;
    const Key* described = lookUpForDescribe(key, error);
    if (described == nullptr) {
        return failed<int>(error);
    }
    const std::string text = described->text();
    *buffer = static_cast<char*>(allocated(text.data(), text.size()));
    errno = EDOM; // says nothing after a success, so nobody may rely on it
    return static_cast<int>(text.size());
}

long KeyService::unlinkKey(key_serial_t key, key_serial_t ring) {
    record("keyctl_unlink " + std::to_string(key) + " " + std::to_string(ring));
    refuseNamedKeyring("keyctl_unlink", key);
    refuseNamedKeyring("keyctl_unlink", ring);
    const auto named = keys_.find(ring);
    if (named != keys_.end() && !named->second.isKeyring()) {
        misuse(who, "keyctl_unlink from " + std::to_string(ring) + ", which is not a keyring");
    }
    if (fails("keyctl_unlink")) {
        return -1;
    }
    int error = 0;
    Key* from = lookUp(ring, KEY_USR_WRITE, error);
    if (from == nullptr) {
        return failed<long>(error);
    }
    if (keys_.count(key) == 0) {
        return failed<long>(key < 1 ? EINVAL : ENOKEY);
    }
    return unlinkFrom(*from, key) ? 0 : failed<long>(ENOENT);
}

long KeyService::watchKey(key_serial_t ring, int descriptor, int watchId) {
    record("keyctl_watch_key " + std::to_string(ring) + " " + std::to_string(descriptor) + " " +
           std::to_string(watchId));
    refuseNamedKeyring("keyctl_watch_key", ring);
    const auto queue = queueForWatch(descriptor, watchId);
    if (fails("keyctl_watch_key")) {
        return -1;
    }
    int error = 0;
    Key* watched = lookUp(ring, KEY_USR_VIEW, error);
    if (watched == nullptr) {
        return failed<long>(error);
    }
    auto& watches = watched->watches;
    if (std::any_of(watches.begin(), watches.end(),
                    [&](const Watch& watch) { return watch.queue == queue; })) {
        return failed<long>(EBUSY);
    }
    watches.push_back({queue, watchId});
    return 0;
}

std::shared_ptr<NotificationQueue> KeyService::queueForWatch(int descriptor, int watchId) const {
    if (watchId < 0 || watchId > mostWatchId) {
        misuse(who, "keyctl_watch_key takes the ids 0 to 255, not " + std::to_string(watchId));
    }
    for (const auto& queue : queues_) {
        if (queue->writeEnd() != descriptor || descriptor < 0) {
            continue;
        }
        if (!queue->isSized()) {
            misuse(who, "keyctl_watch_key before the queue's size is set: all would be lost");
        }
        return queue;
    }
    misuse(who, "keyctl_watch_key on " + std::to_string(descriptor) +
                    ", which is not the write end of a notification pipe");
}

key_serial_t KeyService::addKeyCall(const char* type, const char* description, const void* payload,
                                    std::size_t size, key_serial_t ring) {
    record("add_key " + orNull(type) + " " + orNull(description) + " " + std::to_string(size) +
           " " + std::to_string(ring));
    refuseForeignKey(type, description);
    if (size != 0) {
        refuseNull("add_key", payload);
    }
    refuseNamedKeyring("add_key", ring);
    if (fails("add_key")) {
        return -1;
    }
    if (size > mostPayload) {
        return failed<key_serial_t>(EINVAL);
    }
    int error = 0;
    Key* into = lookUp(ring, KEY_USR_WRITE, error);
    if (into == nullptr || !into->isKeyring()) {
        return failed<key_serial_t>(into == nullptr ? error : ENOTDIR);
    }
    return addPayload(*into, Bytes(static_cast<const std::uint8_t*>(payload), size));
}

key_serial_t KeyService::addPayload(Key& ring, Bytes payload) {
    const int error = refusal(payload);
    if (error != 0) {
        return failed<key_serial_t>(error);
    }
    const auto proposed = describePayload(payload);
    if (proposed.empty()) {
        return failed<key_serial_t>(EBADMSG);
    }
    Key& added = create(proposed, {});
    added.payload.assign(payload.begin(), payload.end());
    linkInto(ring, added.serial);
    return added.serial;
}

int KeyService::refusal(Bytes payload) const {
    if (payload.empty()) {
        return EINVAL;
    }
    if (payload.size() > mostCertificate) {
        return EMSGSIZE;
    }
    return verdict_ ? verdict_(payload) : 0;
}

std::string KeyService::describePayload(Bytes payload) const {
    return describe_ ? describe_(payload) : std::string(payload.begin(), payload.end());
}

int KeyService::openQueue(int ends[2], int flags) {
    refuseNull("pipe2", ends);
    auto queue = NotificationQueue::open(flags);
    if (!queue) {
        return -1;
    }
    ends[0] = queue->readEnd();
    ends[1] = queue->writeEnd();
    queues_.push_back(std::move(queue));
    return 0;
}

NotificationQueue* KeyService::queueOf(int descriptor) const {
    for (const auto& queue : queues_) {
        if (queue->owns(descriptor)) {
            return queue.get();
        }
    }
    return nullptr;
}

void KeyService::noteClosed(int descriptor) {
    NotificationQueue* queue = queueOf(descriptor);
    if (queue == nullptr) {
        return;
    }
    queue->noteClosed(descriptor);
    if (!queue->isGone()) {
        return;
    }
    for (auto& [serial, key] : keys_) {
        std::erase_if(key.watches, [](const Watch& watch) { return watch.queue->isGone(); });
    }
    std::erase_if(queues_, [](const auto& known) { return known->isGone(); });
}

} // namespace Vestrel::Tests
