// SPDX-License-Identifier: Apache-2.0
// Decodes the records of the kernel's notification pipes, and holds the constants of their making.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Vestrel {

// The kernel's own names stand in <linux/watch_queue.h>, which cannot be included beside <fcntl.h>;
// the source beside this header proves the values equal.
inline constexpr int notificationPipeFlag = 0x80;            // O_NOTIFICATION_PIPE
inline constexpr unsigned long setQueueSizeRequest = 0x5760; // IOC_WATCH_QUEUE_SET_SIZE
inline constexpr int queueSlots = 256;

struct WatchNotification {
    static constexpr std::size_t size = 16;
    static constexpr std::size_t headerSize = 8; // what a report of a loss consists of

    // Types.
    static constexpr std::uint32_t meta = 0;
    static constexpr std::uint32_t key = 1;
    // Subtypes of meta notifications.
    static constexpr std::uint32_t removal = 0;
    static constexpr std::uint32_t loss = 1;
    // Subtypes of key notifications that count.
    static constexpr std::uint32_t linked = 2;
    static constexpr std::uint32_t unlinked = 3;
    // Subtypes of key notifications after which what is on record is in doubt.
    static constexpr std::uint32_t cleared = 4;
    static constexpr std::uint32_t revoked = 5;
    static constexpr std::uint32_t invalidated = 6;

    std::uint32_t type;
    std::uint32_t subtype;
    std::uint32_t length; // in bytes, as the record says
    std::uint32_t keyId;  // what changed: the keyring, for a link or unlink
    std::uint32_t aux;    // the key that was linked or unlinked

    static WatchNotification decoded(std::span<const char, size> bytes);

    // Of a key notification; empty for one that is not known.
    const char* subtypeName() const noexcept;
};

} // namespace Vestrel
