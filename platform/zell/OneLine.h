// SPDX-License-Identifier: Apache-2.0
// Text of unknown origin made safe for a line of output.
#pragma once

#include "platform/zell/ByteRuns.h"

#include <array>
#include <bit>
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

// Whether the text would be appended as it is. Sixteen bytes at a time, of which compilers make a
// step each.
inline bool isOneLine(std::string_view text) {
    using Halves = std::array<ByteRuns::Word, 2>;
    std::array<unsigned char, sizeof(Halves)> controls{};
    for (; text.size() >= controls.size(); text.remove_prefix(controls.size())) {
        for (std::size_t i = 0; i < controls.size(); ++i) {
            const auto byte = static_cast<unsigned char>(text[i]);
            controls[i] |= static_cast<unsigned char>(byte < ' ' || byte == 0x7f);
        }
    }
    return std::bit_cast<Halves>(controls) == Halves{} &&
           ByteRuns::leading<ByteRuns::NoControls>(text) == text.size();
}

inline std::string oneLine(std::string_view text) {
    std::string line;
    appendOneLine(line, text);
    return line;
}

} // namespace Zell
