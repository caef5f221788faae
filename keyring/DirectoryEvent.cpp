// SPDX-License-Identifier: Apache-2.0
// The layout of an inotify record.
#include "keyring/DirectoryEvent.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cstring>

namespace Vestrel {

static_assert(sizeof(inotify_event) == DirectoryEvent::headerSize);

std::optional<DirectoryEvent> DirectoryEvent::taken(std::span<const char>& bytes) {
    if (bytes.size() < headerSize) {
        bytes = {};
        return std::nullopt;
    }
    inotify_event header{};
    std::memcpy(&header, bytes.data(), headerSize);
    bytes = bytes.subspan(headerSize);

    const std::size_t length = std::min<std::size_t>(header.len, bytes.size());
    const std::string_view padded(bytes.data(), length);
    bytes = bytes.subspan(length);
    return DirectoryEvent{header.wd, header.mask, header.cookie, header.len,
                          padded.substr(0, padded.find('\0'))};
}

} // namespace Vestrel
