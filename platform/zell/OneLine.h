// SPDX-License-Identifier: Apache-2.0
// Text of unknown origin made safe for a line of output.
#pragma once

#include "platform/zell/ByteRuns.h"

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

inline std::string oneLine(std::string_view text) {
    std::string line;
    appendOneLine(line, text);
    return line;
}

} // namespace Zell
