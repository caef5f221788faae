// SPDX-License-Identifier: Apache-2.0
// Decodes the records that an inotify descriptor delivers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace Vestrel {

struct DirectoryEvent {
    static constexpr std::size_t headerSize = 16;

    std::int32_t watch;
    std::uint32_t mask;
    std::uint32_t cookie;
    std::uint32_t nameLength; // as the record says, padding included
    std::string_view name;    // up to the first NUL; points into the bytes that were read

    // Takes the first record off the bytes. Nothing when they hold no whole header. A name length
    // that points beyond the bytes takes all of them.
    static std::optional<DirectoryEvent> taken(std::span<const char>& bytes);
};

} // namespace Vestrel
