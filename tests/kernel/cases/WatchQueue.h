// SPDX-License-Identifier: Apache-2.0
// A kernel watch queue as the kernel gives it, without the state machine.
#pragma once

#include "platform/zell/OwnedFd.h"

#include <keyutils.h>
#include <sys/types.h>

#include <cstdint>
#include <ostream>
#include <vector>

namespace Vestrel::Tests {

/// What one read gave. A record shorter than 16 bytes has only the fields that fit.
struct Record {
    std::size_t size = 0;
    std::uint32_t type = 0;
    std::uint32_t subtype = 0;
    std::uint32_t info = 0;
    std::uint32_t keyId = 0;
    std::uint32_t aux = 0;

    friend bool operator==(const Record&, const Record&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Record& record);
};

using Records = std::vector<Record>;

/// The record that a loss leaves.
Record lossRecord();

class WatchQueue {
public:
    static constexpr unsigned watchId = 7;

    /// Throws std::runtime_error when the kernel refuses. A size of 0 leaves the queue unsized.
    explicit WatchQueue(unsigned long slots = 256);

    /// 0 or the errno.
    int setSize(unsigned long slots) const;
    int watch(key_serial_t keyring, unsigned id = watchId) const;

    /// read(2); -1 with errno.
    ssize_t read(void* buffer, std::size_t size) const;
    /// Reads until there is no more.
    Records drain() const;
    bool isReadable() const;

    void closeWriteEnd() { writeEnd_.reset(); }

private:
    Zell::OwnedFd readEnd_;
    Zell::OwnedFd writeEnd_;
};

/// The record of a change of `keyring`, as a watch with WatchQueue::watchId gets it.
Record change(std::uint32_t subtype, key_serial_t keyring, key_serial_t key = 0);

enum KeySubtype : std::uint32_t {
    Linked = 2,
    Unlinked = 3,
    Cleared = 4,
    Revoked = 5,
    Invalidated = 6,
    SetAttr = 7
};

} // namespace Vestrel::Tests
