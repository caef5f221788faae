// SPDX-License-Identifier: Apache-2.0
// Text of unknown origin made safe for a line of output.
#pragma once

#include "platform/zell/ByteRuns.h"

#include <array>
#include <bit>
#include <cstring>
#include <string>
#include <string_view>

namespace Zell {

// Appends the text with control characters as \xHH; bytes above 0x7f stay, since names are UTF-8 as
// a rule.
inline void appendOneLine(std::string& line, std::string_view text) {
    constexpr std::string_view hexDigits = "0123456789abcdef";
    while (!text.empty()) {
        const std::size_t plain = ByteRuns::leading<ByteRuns::NoControls>(text);
        line += text.substr(0, plain);
        text.remove_prefix(plain);
        if (!text.empty()) {
            const auto byte = static_cast<unsigned char>(text.front());
            line += {'\\', 'x', hexDigits[byte >> 4], hexDigits[byte & 0xf]};
            text.remove_prefix(1);
        }
    }
}

namespace Impl {

using Bytes [[gnu::vector_size(16)]] = unsigned char;

// Not 0 in the place of a control character.
inline Bytes controls(const char* text) {
    Bytes bytes; // NOLINT: filled by memcpy()
    std::memcpy(&bytes, text, sizeof bytes);
    return static_cast<Bytes>(bytes < ' ') | static_cast<Bytes>(bytes == 0x7f);
}

} // namespace Impl

// Whether the text would be appended as it is. Found sixteen bytes at a time, of which the last
// ones may be looked at twice.
inline bool isOneLine(std::string_view text) {
    constexpr std::size_t step = sizeof(Impl::Bytes);
    if (text.size() < step) {
        return ByteRuns::leading<ByteRuns::NoControls>(text) == text.size();
    }
    Impl::Bytes found = Impl::controls(text.data() + text.size() - step);
    for (; text.size() > step; text.remove_prefix(step)) {
        found |= Impl::controls(text.data());
    }
    using Halves = std::array<ByteRuns::Word, 2>;
    return std::bit_cast<Halves>(found) == Halves{};
}

inline std::string oneLine(std::string_view text) {
    std::string line;
    appendOneLine(line, text);
    return line;
}

} // namespace Zell
