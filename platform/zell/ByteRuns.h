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

// Kinds of bytes: a mark (of Spaces: anything but 0) in the place of every byte that ends a run.

struct Digits {
    // The digits are the ten values that differ from '0' in the low bits only.
    static constexpr Word ends(Word word) { return ~below(word ^ every('0'), 10) & marks; }
};

struct DigitsAndPoints {
    static constexpr Word ends(Word word) { return Digits::ends(word) & ~equal(word, '.'); }
};

struct DigitsPointsAndColons {
    // A colon comes after the nine.
    static constexpr Word ends(Word word) {
        return ~below(word ^ every('0'), 11) & ~equal(word, '.') & marks;
    }
};

struct Spaces {
    static constexpr Word ends(Word word) { return word ^ every(' '); }
};

struct NoQuotes {
    static constexpr Word ends(Word word) { return equal(word, '"'); }
};

struct NoLineEnds {
    // Most text has no byte so low.
    static constexpr Word ends(Word word) {
        return below(word, '\r' + 1) == 0 ? 0 : equal(word, '\n') | equal(word, '\r');
    }
};

struct PrintableAscii {
    // Of the low seven bits, the first sum reaches 0x80 from ' ' on, the second for 0x7f only.
    static constexpr Word ends(Word word) {
        const Word low = word & ~marks;
        return (~(low + every(0x80 - ' ')) | (low + every(1)) | word) & marks;
    }
};

namespace Impl {

constexpr Word lowestFirst(Word word) {
    return std::endian::native == std::endian::big ? __builtin_bswap64(word) : word;
}

inline Word load(const char* bytes) {
    Word word; // NOLINT: filled by memcpy()
    std::memcpy(&word, bytes, wordSize);
    return lowestFirst(word);
}

// Fewer than eight bytes, zeros behind them. Rarely needed, and kept out of what is.
[[gnu::noinline]] inline Word loadFew(std::string_view text) {
    Word word = 0;
    std::memcpy(&word, text.data(), text.size());
    return lowestFirst(word);
}

// The last bytes of a text, one to seven of them, zeros behind them.
inline Word loadLast(std::string_view text, std::size_t count) {
    return text.size() < wordSize
               ? loadFew(text.substr(text.size() - count))
               : load(text.data() + text.size() - wordSize) >> (8 * (wordSize - count));
}

// The first bytes of a text, one to seven of them, zeros before them.
inline Word loadFirst(std::string_view text, std::size_t count) {
    const Word word = text.size() < wordSize ? loadFew(text.substr(0, count)) : load(text.data());
    return word << (8 * (wordSize - count));
}

// How many bytes of a word, from the lowest or from the highest, are before a mark.
inline std::size_t lowestBefore(Word ends) {
    return static_cast<std::size_t>(std::countr_zero(ends)) / 8;
}

inline std::size_t highestBefore(Word ends) {
    return static_cast<std::size_t>(std::countl_zero(ends)) / 8;
}

// The first `length` bytes, whole words of them, are known to be of the run; so are the last ones
// of longTrailing().
template <class Kind>
[[gnu::noinline]] std::size_t longLeading(std::string_view text, std::size_t length) {
    for (; text.size() - length >= wordSize; length += wordSize) {
        if (const Word ends = Kind::ends(load(text.data() + length)); ends != 0) {
            return length + lowestBefore(ends);
        }
    }
    const std::size_t rest = text.size() - length;
    return rest == 0 ? length
                     : length + std::min(rest, lowestBefore(Kind::ends(loadLast(text, rest))));
}

template <class Kind>
[[gnu::noinline]] std::size_t longTrailing(std::string_view text, std::size_t length) {
    std::size_t rest = text.size() - length;
    for (; rest >= wordSize; rest -= wordSize) {
        if (const Word ends = Kind::ends(load(text.data() + rest - wordSize)); ends != 0) {
            return text.size() - rest + highestBefore(ends);
        }
    }
    length = text.size() - rest;
    return rest == 0 ? length
                     : length + std::min(rest, highestBefore(Kind::ends(loadFirst(text, rest))));
}

} // namespace Impl

// The length of the run that the text begins with.
template <class Kind>
[[gnu::always_inline]] inline std::size_t leading(std::string_view text) {
    if (text.size() < wordSize) {
        return Impl::longLeading<Kind>(text, 0);
    }
    const Word ends = Kind::ends(Impl::load(text.data()));
    return ends != 0 ? Impl::lowestBefore(ends) : Impl::longLeading<Kind>(text, wordSize);
}

// The length of the run that the text ends with.
template <class Kind>
[[gnu::always_inline]] inline std::size_t trailing(std::string_view text) {
    if (text.size() < wordSize) {
        return Impl::longTrailing<Kind>(text, 0);
    }
    const Word ends = Kind::ends(Impl::load(text.data() + text.size() - wordSize));
    return ends != 0 ? Impl::highestBefore(ends) : Impl::longTrailing<Kind>(text, wordSize);
}

} // namespace Zell::ByteRuns
