// SPDX-License-Identifier: Apache-2.0
// Log message formats taken apart once and filled many times.
#include "platform/zell/LogLayout.h"

namespace Zell {

namespace {

// Returns the place behind it.
char* putPiece(char* place, std::string_view piece) {
    return place + piece.copy(place, piece.size());
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
    const std::string_view plain = plain_;
    std::size_t done = 0;
    std::size_t next = 0;
    for (const std::size_t end : places_) {
        place = putPiece(place, {plain.data() + done, end - done});
        done = end;
        if (next < arguments.size()) {
            place = putPiece(place, arguments[next].view());
            ++next;
        }
    }
    return putPiece(place, {plain.data() + done, plain.size() - done});
}

} // namespace Zell
