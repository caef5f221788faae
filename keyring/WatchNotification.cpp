// SPDX-License-Identifier: Apache-2.0
// The layout of a key notification.
#include "keyring/WatchNotification.h"

#include <linux/watch_queue.h>

#include <array>
#include <cstring>

namespace Vestrel {

static_assert(notificationPipeFlag == O_NOTIFICATION_PIPE);
static_assert(setQueueSizeRequest == IOC_WATCH_QUEUE_SET_SIZE);
static_assert(WatchNotification::size == sizeof(key_notification));
static_assert(WatchNotification::meta == WATCH_TYPE_META);
static_assert(WatchNotification::key == WATCH_TYPE_KEY_NOTIFY);
static_assert(WatchNotification::removal == WATCH_META_REMOVAL_NOTIFICATION);
static_assert(WatchNotification::loss == WATCH_META_LOSS_NOTIFICATION);
static_assert(WatchNotification::linked == NOTIFY_KEY_LINKED);
static_assert(WatchNotification::unlinked == NOTIFY_KEY_UNLINKED);
static_assert(WatchNotification::cleared == NOTIFY_KEY_CLEARED);
static_assert(WatchNotification::revoked == NOTIFY_KEY_REVOKED);
static_assert(WatchNotification::invalidated == NOTIFY_KEY_INVALIDATED);

WatchNotification WatchNotification::decoded(std::span<const char, size> bytes) {
    std::array<std::uint32_t, size / sizeof(std::uint32_t)> words{};
    std::memcpy(words.data(), bytes.data(), size);
    return {words[0] & 0xffffff, words[0] >> 24, words[1] & WATCH_INFO_LENGTH, words[2], words[3]};
}

const char* WatchNotification::subtypeName() const noexcept {
    constexpr std::array<const char*, 8> names{"instantiated", "updated", "linked",      "unlinked",
                                               "cleared",      "revoked", "invalidated", "setattr"};
    return subtype < names.size() ? names[subtype] : "";
}

} // namespace Vestrel
