// SPDX-License-Identifier: Apache-2.0
// Text of unknown origin made safe for a line of output.
#pragma once

#include <string>
#include <string_view>

namespace Zell {

// Control characters as \xHH; bytes above 0x7f stay, since names are UTF-8 as a rule.
inline std::string oneLine(std::string_view text) {
    constexpr std::string_view hexDigits = "0123456789abcdef";
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            line += c;
        } else {
            line += {'\\', 'x', hexDigits[byte >> 4], hexDigits[byte & 0xf]};
        }
    }
    return line;
}

} // namespace Zell
