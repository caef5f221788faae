// SPDX-License-Identifier: Apache-2.0
// The model's key table: what the kernel, other processes and the test itself do to it.
#include "tests/fakes/KeyService.h"

#include "tests/fakes/Misuse.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace Vestrel::Tests {

namespace {

constexpr const char* who = "KeyService";
constexpr unsigned metaType = 0;
constexpr unsigned removalSubtype = 0;
constexpr unsigned keyType = 1;

enum KeySubtype : unsigned {
    Linked = 2,
    Unlinked = 3,
    Cleared = 4,
    Revoked = 5,
    Invalidated = 6,
    SetAttr = 7
};

constinit KeyService* currentService = nullptr;
// Shared by all models of the process: a serial kept from an earlier one must never name a key.
constinit key_serial_t lastSerial = 0x0a000000;

NotificationQueue::Bytes bytesOf(const NotificationRecord& record) {
    return {reinterpret_cast<const std::uint8_t*>(&record), sizeof record};
}

} // namespace

KeyService::KeyService()
    : script_(who, {"find_key_by_type_and_desc", "keyctl_read_alloc", "keyctl_describe",
                    "keyctl_describe_alloc", "keyctl_unlink", "keyctl_watch_key", "add_key"}) {
    if (currentService != nullptr) {
        misuse(who, "one is installed already");
    }
    currentService = this;
}

KeyService::~KeyService() {
    currentService = nullptr;
}

KeyService* KeyService::current() {
    return currentService;
}

KeyService& KeyService::installed(std::string_view call) {
    if (currentService == nullptr) {
        misuse(who, std::string(call) + " was called, but no KeyService is installed");
    }
    return *currentService;
}

int KeyService::Key::validity() const {
    if (isInvalidated) {
        return ENOKEY;
    }
    return isRevoked ? EKEYREVOKED : 0;
}

std::string KeyService::Key::text() const {
    char perm[9];
    std::snprintf(perm, sizeof perm, "%08x", attributes.perm);
    return attributes.type + ";" + std::to_string(attributes.uid) + ";" +
           std::to_string(attributes.gid) + ";" + perm + ";" + description;
}

KeyService::Key& KeyService::create(const std::string& description,
                                    const KeyAttributes& attributes) {
    Key key{};
    key.serial = reusedSerial_ != 0 ? std::exchange(reusedSerial_, 0) : ++lastSerial;
    key.description = description.c_str(); // the kernel's descriptions end at the first NUL
    key.attributes = attributes;
    return keys_.emplace(key.serial, std::move(key)).first->second;
}

KeyService::Key& KeyService::ringOf(const std::string& name) {
    return const_cast<Key&>(std::as_const(*this).ringOf(name));
}

const KeyService::Key& KeyService::ringOf(const std::string& name) const {
    for (const auto& [serial, key] : keys_) {
        if (key.isKeyring() && key.description == name) {
            return key;
        }
    }
    misuse(who, "there is no keyring " + name);
}

KeyService::Key& KeyService::known(key_serial_t key) {
    return const_cast<Key&>(std::as_const(*this).known(key));
}

const KeyService::Key& KeyService::known(key_serial_t key) const {
    const auto found = keys_.find(key);
    if (found == keys_.end()) {
        misuse(who, "there is no key " + std::to_string(key));
    }
    return found->second;
}

key_serial_t KeyService::keyring(const std::string& name, std::uint32_t perm) {
    for (const auto& [serial, key] : keys_) {
        if (key.isKeyring() && key.description == name) {
            return serial;
        }
    }
    return create(name, {"keyring", 0, 0, perm}).serial;
}

key_serial_t KeyService::serialOf(const std::string& ring) const {
    return ringOf(ring).serial;
}

key_serial_t KeyService::addKey(const std::string& ring, const std::string& description,
                                const KeyAttributes& attributes) {
    Key& into = ringOf(ring);
    const key_serial_t serial = create(description, attributes).serial;
    linkInto(into, serial);
    return serial;
}

void KeyService::link(const std::string& ring, key_serial_t key) {
    linkInto(ringOf(ring), key);
}

void KeyService::linkInto(Key& ring, key_serial_t key) {
    const Key& added = known(key);
    if (ring.validity() != 0 || added.validity() != 0) {
        misuse(who, "the kernel links no dead key and links nothing into a dead keyring");
    }
    const auto displaced =
        std::find_if(ring.members.begin(), ring.members.end(), [&](key_serial_t member) {
            const Key& other = known(member);
            return other.attributes.type == added.attributes.type &&
                   other.description == added.description;
        });
    if (displaced != ring.members.end()) {
        *displaced = key;
    } else {
        ring.members.push_back(key);
    }
    notify(ring, Linked, key);
}

void KeyService::unlink(const std::string& ring, key_serial_t key) {
    if (!unlinkFrom(ringOf(ring), key)) {
        misuse(who, "key " + std::to_string(key) + " is not linked into " + ring);
    }
}

bool KeyService::unlinkFrom(Key& ring, key_serial_t key) {
    // The kernel finds the link by type and description, not by serial: the serial of a displaced
    // key takes the key out that displaced it, and is the one that the record names.
    const Key& named = known(key);
    const auto removed = std::erase_if(ring.members, [&](key_serial_t member) {
        const Key& other = known(member);
        return other.attributes.type == named.attributes.type &&
               other.description == named.description;
    });
    if (removed != 0) {
        notify(ring, Unlinked, key);
    }
    return removed != 0;
}

void KeyService::clear(const std::string& ring) {
    Key& cleared = ringOf(ring);
    cleared.members.clear();
    notify(cleared, Cleared, 0);
}

void KeyService::setPermissions(key_serial_t key, std::uint32_t perm) {
    known(key).attributes.perm = perm;
    notify(known(key), SetAttr, 0);
}

void KeyService::revoke(key_serial_t key) {
    Key& revoked = known(key);
    if (!std::exchange(revoked.isRevoked, true)) {
        notify(revoked, Revoked, 0);
        revoked.members.clear();
    }
}

void KeyService::invalidate(key_serial_t key) {
    Key& invalidated = known(key);
    if (!std::exchange(invalidated.isInvalidated, true)) {
        notify(invalidated, Invalidated, 0);
    }
}

void KeyService::removeKeyring(const std::string& ring) {
    const Key& removed = ringOf(ring);
    const auto serial = static_cast<std::uint32_t>(removed.serial);
    for (const Watch& watch : removed.watches) {
        watch.queue->post(bytesOf(notificationRecord(metaType, removalSubtype,
                                                     static_cast<unsigned>(watch.id), serial, 0)));
    }
    for (auto& [other, key] : keys_) {
        std::erase(key.members, removed.serial);
    }
    keys_.erase(removed.serial);
}

key_serial_t KeyService::threadKeyring() {
    if (threadKeyring_ == 0) {
        threadKeyring_ = create("_tid", {"keyring", 0, 0, writableKeyring}).serial;
    }
    return threadKeyring_;
}

void KeyService::reuseSerial(key_serial_t serial) {
    if (keys_.contains(serial)) {
        misuse(who, "the serial " + std::to_string(serial) + " is taken");
    }
    reusedSerial_ = serial;
}

void KeyService::collectGarbage() {
    for (auto& [serial, key] : keys_) {
        std::erase_if(key.members,
                      [this](key_serial_t member) { return known(member).validity() != 0; });
    }
    std::erase_if(keys_, [this](const auto& entry) {
        return !entry.second.isKeyring() && !isHeld(entry.first);
    });
}

bool KeyService::isHeld(key_serial_t key) const {
    return std::any_of(keys_.begin(), keys_.end(), [key](const auto& entry) {
        const auto& members = entry.second.members;
        return std::find(members.begin(), members.end(), key) != members.end();
    });
}

void KeyService::notify(const Key& ring, unsigned subtype, key_serial_t subject) {
    for (const Watch& watch : ring.watches) {
        watch.queue->post(bytesOf(notificationRecord(
            keyType, subtype, static_cast<unsigned>(watch.id),
            static_cast<std::uint32_t>(ring.serial), static_cast<std::uint32_t>(subject))));
    }
}

void KeyService::scriptPayload(const std::string& ring, std::vector<std::uint8_t> payload) {
    ringOf(ring).scriptedPayload = std::move(payload);
}

void KeyService::failNth(std::string_view call, std::size_t nth, int error) {
    script_.failNth(call, nth, error);
}

void KeyService::post(const std::string& ring, Bytes record) {
    const Key& watched = ringOf(ring);
    if (watched.watches.empty()) {
        misuse(who, "nobody watches " + ring);
    }
    for (const Watch& watch : watched.watches) {
        watch.queue->post(record);
    }
}

void KeyService::post(const std::string& ring, const NotificationRecord& record) {
    post(ring, bytesOf(record));
}

std::vector<key_serial_t> KeyService::keysOf(const std::string& ring) const {
    return ringOf(ring).members;
}

std::vector<std::string> KeyService::descriptionsOf(const std::string& ring) const {
    std::vector<std::string> descriptions;
    for (const key_serial_t member : ringOf(ring).members) {
        descriptions.push_back(known(member).description);
    }
    return descriptions;
}

std::vector<std::uint8_t> KeyService::payloadOf(key_serial_t key) const {
    return known(key).payload;
}

std::vector<int> KeyService::watchIdsOf(const std::string& ring) const {
    std::vector<int> ids;
    for (const Watch& watch : ringOf(ring).watches) {
        ids.push_back(watch.id);
    }
    return ids;
}

} // namespace Vestrel::Tests
