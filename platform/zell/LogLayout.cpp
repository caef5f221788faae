// SPDX-License-Identifier: Apache-2.0
// Log message formats taken apart once and filled many times.
#include "platform/zell/LogLayout.h"

#include <cstring>

namespace Zell {

namespace {

// Returns the place behind it.
inline char* putPiece(char* place, const char* piece, std::size_t size) {
    std::memcpy(place, piece, size);
    return place + size;
}

} // namespace

LogLayout::LogLayout(const LogDescriptor& descriptor)
    : name_(descriptor.name), format_(descriptor.format), plain_(descriptor.name) {
    plain_ += nameEnd;
    formatIs(descriptor.format);
    plain_ += lineEnd;
}

void LogLayout::formatIs(std::string_view format) {
    while (!format.empty()) {
        const std::string_view directive = format.substr(0, 2);
        if (directive == "%s") {
            places_.push_back(plain_.size());
        } else {
            plain_ += format.front();
        }
        format.remove_prefix(directive == "%s" || directive == "%%" ? 2 : 1);
    }
}

std::size_t LogLayout::longest(std::span<const Orvo::String> arguments) const noexcept {
    std::size_t size = plain_.size();
    for (const Orvo::String& argument : arguments) {
        size += argument.size();
    }
    return size;
}

char* LogLayout::put(char* place, std::span<const Orvo::String> arguments) const noexcept {
    const char* const plain = plain_.data();
    std::size_t done = 0;
    auto next = arguments.begin();
    for (const std::size_t end : places_) {
        place = putPiece(place, plain + done, end - done);
        done = end;
        if (next != arguments.end()) {
            place = putPiece(place, next->c_str(), next->size());
            ++next;
        }
    }
    return putPiece(place, plain + done, plain_.size() - done);
}

} // namespace Zell
