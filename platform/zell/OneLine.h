// SPDX-License-Identifier: Apache-2.0
// Text of unknown origin made safe for a line of output.
#pragma once

#include "platform/zell/ByteRuns.h"
#include "platform/zell/Utf8.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string>
#include <string_view>

namespace Zell {

namespace Impl {

using Bytes [[gnu::vector_size(16)]] = unsigned char;

// How far each byte is beyond ' ', so far that it is no printable ASCII when it is before it.
inline Bytes beyondSpace(const char* text) {
    Bytes bytes; // NOLINT: filled by memcpy()
    std::memcpy(&bytes, text, sizeof bytes);
    return bytes - ' ';
}

inline Bytes larger(Bytes a, Bytes b) {
    return a > b ? a : b; // one instruction
}

// Sixteen bytes at a time, of which the last ones may be looked at twice.
inline bool isPrintableAscii(std::string_view text) {
    constexpr std::size_t step = sizeof(Bytes);
    if (text.size() < step) {
        return ByteRuns::leading<ByteRuns::PrintableAscii>(text) == text.size();
    }
    Bytes farthest = beyondSpace(text.data() + text.size() - step);
    for (; text.size() > step; text.remove_prefix(step)) {
        farthest = larger(farthest, beyondSpace(text.data()));
    }
    using Halves = std::array<ByteRuns::Word, 2>;
    return std::bit_cast<Halves>(static_cast<Bytes>(farthest > '~' - ' ')) == Halves{};
}

// How many bytes at the beginning of a text, which is not empty, stay: a run of printable ASCII or
// a code point; 0 when the first is a control character's, or no UTF-8.
inline std::size_t lineSize(std::string_view text) {
    if (const std::size_t plain = ByteRuns::leading<ByteRuns::PrintableAscii>(text); plain != 0) {
        return plain;
    }
    const std::size_t size = codePointSize(text);
    const bool isControl = size == 1 || (text[0] == '\xc2' && text.size() > 1 &&
                                         isWithin(text[1], 0x80, 0x9f)); // U+0080 to U+009F
    return isControl ? 0 : size;
}

[[gnu::noinline]] inline bool isOneLineOfUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t size = lineSize(text);
        if (size == 0) {
            return false;
        }
        text.remove_prefix(size);
    }
    return true;
}

} // namespace Impl

// Appends the text with \xHH for each byte of a control character and for each that is no UTF-8, as
// terminals take those for control characters too.
inline void appendOneLine(std::string& line, std::string_view text) {
    constexpr std::string_view hexDigits = "0123456789abcdef";
    while (!text.empty()) {
        const std::size_t size = Impl::lineSize(text);
        if (size == 0) {
            const auto byte = static_cast<unsigned char>(text.front());
            line += {'\\', 'x', hexDigits[byte >> 4], hexDigits[byte & 0xf]};
        } else {
            line += text.substr(0, size);
        }
        text.remove_prefix(std::max<std::size_t>(size, 1));
    }
}

// Whether the text would be appended as it is.
inline bool isOneLine(std::string_view text) {
    return Impl::isPrintableAscii(text) || Impl::isOneLineOfUtf8(text);
}

inline std::string oneLine(std::string_view text) {
    std::string line;
    appendOneLine(line, text);
    return line;
}

} // namespace Zell
