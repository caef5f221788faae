// SPDX-License-Identifier: Apache-2.0
// Makes the bytes that an inotify descriptor delivers.
#pragma once

#include <sys/inotify.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace Vestrel::Tests {

struct InotifyRecord {
    std::uint32_t mask = 0;
    std::uint32_t cookie = 0;
    std::string name = {};
    std::int32_t watch = 1;
};

// The 16 fixed bytes.
inline std::string inotifyHeader(const InotifyRecord& record, std::uint32_t nameLength) {
    inotify_event header{};
    header.wd = record.watch;
    header.mask = record.mask;
    header.cookie = record.cookie;
    header.len = nameLength;
    std::string bytes(sizeof header, '\0');
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

// The kernel pads names with NULs to a multiple of the header's size; no name has no padding.
inline std::uint32_t paddedLength(const std::string& name) {
    constexpr std::size_t unit = sizeof(inotify_event);
    return name.empty() ? 0 : static_cast<std::uint32_t>((name.size() + unit) / unit * unit);
}

inline std::string inotifyBytes(const InotifyRecord& record) {
    const std::uint32_t length = paddedLength(record.name);
    std::string name = record.name;
    name.resize(length);
    return inotifyHeader(record, length) + name;
}

} // namespace Vestrel::Tests
