// SPDX-License-Identifier: Apache-2.0
// What the kernel says about keyrings and keys, which is what the cases compare with.
#pragma once

#include "tests/support/CertificateMaker.h"

#include <keyutils.h>

#include <string>
#include <vector>

namespace Vestrel::Tests {

/// Every question goes to the kernel anew. Throws std::runtime_error when the kernel refuses what a
/// case takes for granted.
class Keyring {
public:
    /// The kernel's own keyring of that name, with its leading dot.
    static Keyring named(const std::string& name);
    /// A new one, in the process keyring; anything may be linked into it.
    static Keyring made(const std::string& name);

    key_serial_t serial() const { return serial_; }

    /// Everything that is linked into it, in the kernel's order.
    std::vector<key_serial_t> members() const;
    /// The members that are no keyrings.
    std::vector<key_serial_t> keys() const;
    /// The descriptions of keys(), sorted.
    std::vector<std::string> descriptions() const;
    /// The key of that description; 0 when there is none.
    key_serial_t keyOf(const std::string& description) const;

    /// -1 with errno when the kernel refuses.
    key_serial_t tryAdd(const Bytes& certificate) const;
    key_serial_t add(const Bytes& certificate) const;
    /// A key of the type "user", which any keyring without restriction takes.
    key_serial_t addUser(const std::string& description) const;
    void link(key_serial_t key) const;
    void unlink(key_serial_t key) const;
    void clear() const;
    /// Unlinks every key, but no keyring.
    void unlinkKeys() const;

private:
    explicit Keyring(key_serial_t serial) : serial_(serial) {}

    key_serial_t serial_;
};

/// The kernel's description text of a key, "type;uid;gid;permissions;description"; empty with errno
/// when it has none.
std::string describe(key_serial_t key);

/// The last field of that text, whatever it holds.
std::string descriptionOf(key_serial_t key);

/// Takes everything out of the keyring of this process.
void emptyProcessKeyring();

} // namespace Vestrel::Tests
