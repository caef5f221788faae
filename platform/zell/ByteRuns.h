// SPDX-License-Identifier: Apache-2.0
// How long a run of bytes of one kind is, found eight bytes at a time: a run of a few bytes, as
// most are, costs one step whatever its length.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace Zell::ByteRuns {

// Eight bytes of a text, the first of them lowest.
using Word = std::uint64_t;

inline constexpr std::size_t wordSize = sizeof(Word);

// That byte in every place.
constexpr Word every(unsigned char byte) {
    return byte * Word{0x0101010101010101};
}

inline constexpr Word marks = every(0x80);

// A mark (0x80) in the place of every byte that is that one. Nothing carries from byte to byte.
constexpr Word equal(Word word, unsigned char byte) {
    const Word difference = word ^ every(byte);
    return ~(((difference & ~marks) + ~marks) | difference) & marks;
}

// A mark in the place of every byte below a limit of 1 to 0x80.
constexpr Word below(Word word, unsigned char limit) {
    return ~((word & ~marks) + every(static_cast<unsigned char>(0x80 - limit))) & ~word & marks;
}

// Kinds of bytes: a mark in the place of every byte that ends a run.

struct Digits {
    // The digits are the ten values that differ from '0' in the low bits only.
    static constexpr Word ends(Word word) { return ~below(word ^ every('0'), 10) & marks; }
};

struct DigitsAndPoints {
    static constexpr Word ends(Word word) { return Digits::ends(word) & ~equal(word, '.'); }
};

struct DigitsPointsAndColons {
    static constexpr Word ends(Word word) {
        return DigitsAndPoints::ends(word) & ~equal(word, ':');
    }
};

struct NoLineEnds {
    static constexpr Word ends(Word word) { return equal(word, '\n') | equal(word, '\r'); }
};

struct NoControls {
    static constexpr Word ends(Word word) { return below(word, ' ') | equal(word, 0x7f); }
};

namespace Impl {

// Up to eight bytes, the rest zero.
inline Word load(const char* bytes, std::size_t size) {
    Word word = 0;
    std::memcpy(&word, bytes, size);
    if constexpr (std::endian::native == std::endian::big) {
        word = __builtin_bswap64(word);
    }
    return word;
}

} // namespace Impl

// The length of the run that the text begins with.
template <class Kind>
std::size_t leading(std::string_view text) {
    std::size_t length = 0;
    for (; text.size() - length >= wordSize; length += wordSize) {
        if (const Word ends = Kind::ends(Impl::load(text.data() + length, wordSize)); ends != 0) {
            return length + static_cast<std::size_t>(std::countr_zero(ends)) / 8;
        }
    }
    const std::size_t rest = text.size() - length;
    const Word ends = Kind::ends(Impl::load(text.data() + length, rest));
    return length + std::min(rest, static_cast<std::size_t>(std::countr_zero(ends)) / 8);
}

// The length of the run that the text ends with.
template <class Kind>
std::size_t trailing(std::string_view text) {
    std::size_t rest = text.size();
    for (; rest >= wordSize; rest -= wordSize) {
        const Word ends = Kind::ends(Impl::load(text.data() + rest - wordSize, wordSize));
        if (ends != 0) {
            return text.size() - rest + static_cast<std::size_t>(std::countl_zero(ends)) / 8;
        }
    }
    if (rest == 0) {
        return text.size();
    }
    const Word last = Impl::load(text.data(), rest) << (8 * (wordSize - rest));
    const auto length = static_cast<std::size_t>(std::countl_zero(Kind::ends(last))) / 8;
    return text.size() - rest + std::min(rest, length);
}

} // namespace Zell::ByteRuns
