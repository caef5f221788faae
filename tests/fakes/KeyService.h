// SPDX-License-Identifier: Apache-2.0
// A strict small model of the kernel key service, which answers libkeyutils in the unit tests.
#pragma once

#include "tests/fakes/FailureScript.h"
#include "tests/fakes/NotificationQueue.h"

#include <keyutils.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

/// The permission masks that the kernel gives, as its description text prints them.
inline constexpr std::uint32_t writableKeyring = 0x1f0f0000;
inline constexpr std::uint32_t readOnlyKeyring = 0x1f0b0000;
inline constexpr std::uint32_t usualKey = 0x39010000;

struct KeyAttributes {
    std::string type = "asymmetric";
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint32_t perm = usualKey;
};

/// While one exists, every call of libkeyutils and every notification pipe of this process is
/// answered by it; without one such a call aborts, and so does a call that no correct program
/// makes. One at a time, one thread. Operations named by a keyring's name abort when there is none.
/// Where this model and a kernel differ, the model is wrong.
class KeyService {
public:
    using Bytes = std::span<const std::uint8_t>;
    using Describe = std::function<std::string(Bytes)>;
    using Verdict = std::function<int(Bytes)>;

    KeyService();
    ~KeyService();
    KeyService(const KeyService&) = delete;
    KeyService& operator=(const KeyService&) = delete;

    // --- The key table, as the kernel or another process changes it ---------------------------

    /// The serial of the keyring of that name, which is created when absent.
    key_serial_t keyring(const std::string& name, std::uint32_t perm = writableKeyring);
    key_serial_t serialOf(const std::string& ring) const;

    /// Makes a key and links it; notifies like any link, and displaces like one.
    key_serial_t addKey(const std::string& ring, const std::string& description,
                        const KeyAttributes& attributes = {});
    void link(const std::string& ring, key_serial_t key);
    void unlink(const std::string& ring, key_serial_t key);
    void clear(const std::string& ring);
    void setPermissions(key_serial_t key, std::uint32_t perm);
    void revoke(key_serial_t key);
    void invalidate(key_serial_t key);
    /// The keyring is destroyed, which ends its watches.
    void removeKeyring(const std::string& ring);
    /// Gives this process a thread keyring, which -1 then names.
    key_serial_t threadKeyring();
    /// The next key or keyring gets this serial, which must be free: the kernel's may come back.
    void reuseSerial(key_serial_t serial);
    /// Forgets keys that no keyring holds, and drops dead ones from their keyrings unannounced.
    void collectGarbage();

    // --- What the tests prescribe ---------------------------------------------------------------

    /// How the kernel describes a payload. Without it the payload's text is the description.
    void describeWith(Describe describe) { describe_ = std::move(describe); }

    /// 0 or the errno with which a payload is refused. Without it every payload is accepted.
    void judgeWith(Verdict verdict) { verdict_ = std::move(verdict); }

    /// The bytes that reading the keyring gives, instead of its members.
    void scriptPayload(const std::string& ring, std::vector<std::uint8_t> payload);
    /// The n-th call of a libkeyutils function from now fails with `error` and does nothing.
    void failNth(std::string_view call, std::size_t nth, int error);

    void failNext(std::string_view call, int error) { failNth(call, 1, error); }

    /// Puts a record into the queues that watch the keyring, whatever it says.
    void post(const std::string& ring, Bytes record);
    void post(const std::string& ring, const NotificationRecord& record);

    // --- What the tests look at -----------------------------------------------------------------

    /// Every call of libkeyutils so far: its name and its arguments in decimal or as text.
    const std::vector<std::string>& calls() const { return calls_; }

    void clearCalls() { calls_.clear(); }

    std::vector<key_serial_t> keysOf(const std::string& ring) const;
    std::vector<std::string> descriptionsOf(const std::string& ring) const;
    std::vector<std::uint8_t> payloadOf(key_serial_t key) const;
    std::vector<int> watchIdsOf(const std::string& ring) const;

    /// Notification pipes of which an end is still open.
    std::size_t openQueues() const { return queues_.size(); }

    /// Prepared failures that no call has met.
    std::size_t pendingFailures() const { return script_.pending(); }

    // --- The hooks' way in ----------------------------------------------------------------------

    static KeyService* current();
    /// Aborts, naming the call, when there is none.
    static KeyService& installed(std::string_view call);

    key_serial_t findKey(const char* type, const char* description, key_serial_t destination);
    int readAlloc(key_serial_t key, void** buffer);
    long describe(key_serial_t key, char* buffer, std::size_t size);
    int describeAlloc(key_serial_t key, char** buffer);
    long unlinkKey(key_serial_t key, key_serial_t ring);
    long watchKey(key_serial_t ring, int descriptor, int watchId);
    key_serial_t addKeyCall(const char* type, const char* description, const void* payload,
                            std::size_t size, key_serial_t ring);

    int openQueue(int ends[2], int flags);
    NotificationQueue* queueOf(int descriptor) const;
    void noteClosed(int descriptor);

private:
    struct Watch {
        std::shared_ptr<NotificationQueue> queue;
        int id;
    };

    struct Key {
        key_serial_t serial;
        std::string description;
        KeyAttributes attributes;
        std::vector<std::uint8_t> payload;
        std::vector<key_serial_t> members;
        std::vector<Watch> watches;
        std::optional<std::vector<std::uint8_t>> scriptedPayload;
        bool isRevoked = false;
        bool isInvalidated = false;

        bool isKeyring() const { return attributes.type == "keyring"; }

        int validity() const;
        std::string text() const;
    };

    Key& create(const std::string& description, const KeyAttributes& attributes);
    Key& ringOf(const std::string& name);
    const Key& ringOf(const std::string& name) const;
    Key& known(key_serial_t key);
    const Key& known(key_serial_t key) const;
    Key* lookUp(key_serial_t serial, std::uint32_t permission, int& error);
    Key* lookUpForDescribe(key_serial_t serial, int& error);
    key_serial_t addPayload(Key& ring, Bytes payload);

    void linkInto(Key& ring, key_serial_t key);
    bool unlinkFrom(Key& ring, key_serial_t key);
    void notify(const Key& ring, unsigned subtype, key_serial_t subject);
    bool isHeld(key_serial_t key) const;
    std::vector<std::uint8_t> readable(const Key& ring) const;
    int refusal(Bytes payload) const;
    std::string describePayload(Bytes payload) const;
    std::shared_ptr<NotificationQueue> queueForWatch(int descriptor, int watchId) const;

    void record(const std::string& call) { calls_.push_back(call); }

    bool fails(std::string_view call);

    std::map<key_serial_t, Key> keys_;
    std::vector<std::shared_ptr<NotificationQueue>> queues_;
    std::vector<std::string> calls_;
    FailureScript script_;
    Describe describe_;
    Verdict verdict_;
    key_serial_t reusedSerial_ = 0;
    key_serial_t threadKeyring_ = 0;
};

} // namespace Vestrel::Tests
