// SPDX-License-Identifier: Apache-2.0
// Buffers that an inotify descriptor may be said to have given.
#include "keyring/DirectoryEvent.h"
#include "tests/fuzz/Fuzz.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cstring>

using Vestrel::DirectoryEvent;
using Vestrel::Tests::require;

namespace {

void holdAgainstHeader(const DirectoryEvent& event, const char* record) {
    inotify_event header{};
    std::memcpy(&header, record, sizeof header);
    require(event.watch == header.wd && event.mask == header.mask &&
                event.cookie == header.cookie && event.nameLength == header.len,
            "the fields are those of the record");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const char> all(reinterpret_cast<const char*>(data), size);
    std::span<const char> rest = all;
    while (!rest.empty()) {
        const std::span<const char> before = rest;
        const auto event = DirectoryEvent::taken(rest);
        if (!event) {
            require(before.size() < DirectoryEvent::headerSize && rest.empty(),
                    "only less than a header is no record, and nothing is left of it");
            break;
        }
        const std::size_t taken = before.size() - rest.size();
        const std::size_t room = before.size() - DirectoryEvent::headerSize;
        holdAgainstHeader(*event, before.data());
        require(taken ==
                    DirectoryEvent::headerSize + std::min<std::size_t>(event->nameLength, room),
                "a record takes what it says, and never more than there is");
        require(event->name.size() <= taken - DirectoryEvent::headerSize &&
                    event->name.data() >= before.data() &&
                    event->name.data() + event->name.size() <= all.data() + all.size(),
                "the name lies within its record");
        require(event->name.find('\0') == std::string_view::npos, "the name ends at its first NUL");
    }
    return 0;
}
