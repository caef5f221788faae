// SPDX-License-Identifier: Apache-2.0
// Decoding of element headers and of the extent of elements with indefinite length.
#include "keymodel/BerReader.h"

#include <optional>

namespace Vestrel {

namespace {

constexpr std::uint8_t constructedBit = 0x20;
constexpr std::uint8_t tagNumberMask = 0x1f; // all set: a high tag number follows
constexpr std::uint8_t indefiniteLength = 0x80;
constexpr std::size_t endMarkerSize = 2;

struct Header {
    std::uint8_t tag = 0;
    std::size_t size = 0;
    std::size_t contentSize = 0;
    bool indefinite = false;
};

bool hasHighTagNumber(std::uint8_t tag) {
    return (tag & tagNumberMask) == tagNumberMask;
}

// A container matches whether or not the encoding marks it as constructed; anything else matches
// exactly.
bool matches(std::uint8_t tag, std::uint8_t wanted) {
    return ((tag ^ wanted) & ~(wanted & constructedBit)) == 0;
}

// Reads `count` bytes, most significant first.
std::size_t bigEndian(ByteSpan bytes, std::size_t count) {
    std::size_t value = 0;
    for (const std::uint8_t byte : bytes.first(count)) {
        value = value << 8U | byte;
    }
    return value;
}

// Reads the length that starts at `bytes[at]`, given in at most `maxLengthBytes` bytes, and moves
// `at` behind it. The content must fit in what is left.
bool readLength(ByteSpan bytes, std::size_t maxLengthBytes, std::size_t& at, Header& header) {
    const std::uint8_t first = bytes[at++];
    if (first == indefiniteLength) {
        header.indefinite = true;
        return (header.tag & constructedBit) != 0;
    }
    header.contentSize = first;
    if (first > indefiniteLength) {
        const std::size_t count = first - std::size_t{indefiniteLength};
        if (count > maxLengthBytes || count > bytes.size() - at) {
            return false;
        }
        header.contentSize = bigEndian(bytes.subspan(at), count);
        at += count;
    }
    return header.contentSize <= bytes.size() - at;
}

std::optional<Header> readHeader(ByteSpan bytes) {
    if (bytes.size() < 2 || hasHighTagNumber(bytes[0])) {
        return std::nullopt;
    }
    Header header{.tag = bytes[0]};
    header.size = 1;
    if (!readLength(bytes, 2, header.size, header)) {
        return std::nullopt;
    }
    return header;
}

// Moves `at` behind one header inside an element of indefinite length, where the kernel takes
// high tag numbers and longer lengths as well.
bool readNestedHeader(ByteSpan bytes, std::size_t& at, Header& header) {
    header = Header{.tag = bytes[at++]};
    if (hasHighTagNumber(header.tag)) {
        do {
            if (bytes.size() - at < 2) {
                return false;
            }
        } while ((bytes[at++] & 0x80U) != 0);
    }
    return readLength(bytes, sizeof(std::size_t) - 1, at, header);
}

// The size of content of indefinite length, with its end marker.
std::optional<std::size_t> indefiniteContentSize(ByteSpan bytes) {
    std::size_t at = 0;
    for (std::size_t open = 1; bytes.size() - at >= endMarkerSize;) {
        if (bytes[at] == 0) {
            if (bytes[at + 1] != 0) {
                return std::nullopt;
            }
            at += endMarkerSize;
            if (--open == 0) {
                return at;
            }
            continue;
        }
        Header header;
        if (!readNestedHeader(bytes, at, header)) {
            return std::nullopt;
        }
        if (header.indefinite) {
            ++open;
        }
        at += header.contentSize;
    }
    return std::nullopt;
}

} // namespace

bool BerReader::nextIs(std::uint8_t tag) const {
    return !atEnd() && matches(rest_[0], tag);
}

bool BerReader::any(BerElement& element) {
    const std::optional<Header> header = readHeader(rest_);
    if (!header) {
        return false;
    }
    std::size_t contentSize = header->contentSize;
    if (header->indefinite) {
        const auto found = indefiniteContentSize(rest_.subspan(header->size));
        if (!found) {
            return false;
        }
        contentSize = *found;
    }
    element.tag = header->tag;
    element.indefinite = header->indefinite;
    element.encoding = rest_.first(header->size + contentSize);
    element.content = element.encoding.subspan(header->size);
    rest_ = rest_.subspan(element.encoding.size());
    return true;
}

bool BerReader::take(std::uint8_t tag, BerElement& element) {
    return nextIs(tag) && any(element);
}

bool BerReader::enter(std::uint8_t tag, BerReader& inside) {
    BerElement element;
    if (!take(tag, element)) {
        return false;
    }
    const std::size_t marker = element.indefinite ? endMarkerSize : 0;
    inside = BerReader(element.content.first(element.content.size() - marker));
    return true;
}

bool BerReader::skipOptional(std::uint8_t tag) {
    BerElement skipped;
    return !nextIs(tag) || any(skipped);
}

} // namespace Vestrel
