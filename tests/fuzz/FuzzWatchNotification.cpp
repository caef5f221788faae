// SPDX-License-Identifier: Apache-2.0
// Records that a watch queue may be said to have given.
#include "keyring/WatchNotification.h"
#include "tests/fuzz/Fuzz.h"

#include <linux/watch_queue.h>

#include <array>
#include <cstring>
#include <string_view>

using Vestrel::WatchNotification;
using Vestrel::Tests::require;

namespace {

constexpr std::array<std::string_view, 8> subtypeNames{"instantiated", "updated", "linked",
                                                       "unlinked",     "cleared", "revoked",
                                                       "invalidated",  "setattr"};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (; size >= WatchNotification::size; size -= WatchNotification::size) {
        std::array<char, WatchNotification::size> bytes{};
        std::memcpy(bytes.data(), data, bytes.size());
        data += bytes.size();
        key_notification kernels{};
        std::memcpy(&kernels, bytes.data(), sizeof kernels);
        const auto ours = WatchNotification::decoded(bytes);
        require(ours.type == kernels.watch.type && ours.subtype == kernels.watch.subtype &&
                    ours.length == (kernels.watch.info & WATCH_INFO_LENGTH) &&
                    ours.keyId == kernels.key_id && ours.aux == kernels.aux,
                "the fields are those that the kernel's own header gives");
        require(ours.subtypeName() == (ours.subtype < subtypeNames.size()
                                           ? subtypeNames[ours.subtype]
                                           : std::string_view()),
                "a subtype that is not known has an empty name");
    }
    return 0;
}
