// SPDX-License-Identifier: Apache-2.0
// Which bytes are UTF-8.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace Zell {

namespace Impl {

// A code point's first byte, and what its second byte may be.
struct Lead {
    unsigned char from;
    unsigned char to;
    unsigned char secondFrom;
    unsigned char secondTo;
    std::size_t size;
};

inline constexpr std::array<Lead, 8> leads{{{0xc2, 0xdf, 0x80, 0xbf, 2},
                                            {0xe0, 0xe0, 0xa0, 0xbf, 3},
                                            {0xe1, 0xec, 0x80, 0xbf, 3},
                                            {0xed, 0xed, 0x80, 0x9f, 3},
                                            {0xee, 0xef, 0x80, 0xbf, 3},
                                            {0xf0, 0xf0, 0x90, 0xbf, 4},
                                            {0xf1, 0xf3, 0x80, 0xbf, 4},
                                            {0xf4, 0xf4, 0x80, 0x8f, 4}}};

constexpr bool isWithin(char c, unsigned char from, unsigned char to) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= from && byte <= to;
}

} // namespace Impl

// How many bytes at the beginning of a text, which is not empty, are one code point; 0 when they
// are none.
constexpr std::size_t codePointSize(std::string_view text) {
    if (Impl::isWithin(text[0], 0, 0x7f)) {
        return 1;
    }
    for (const Impl::Lead& lead : Impl::leads) {
        if (!Impl::isWithin(text[0], lead.from, lead.to)) {
            continue;
        }
        if (text.size() < lead.size || !Impl::isWithin(text[1], lead.secondFrom, lead.secondTo)) {
            return 0;
        }
        for (std::size_t i = 2; i < lead.size; ++i) {
            if (!Impl::isWithin(text[i], 0x80, 0xbf)) {
                return 0;
            }
        }
        return lead.size;
    }
    return 0;
}

} // namespace Zell
