// SPDX-License-Identifier: Apache-2.0
// Steps through the elements of an ASN.1 encoding the way the kernel's decoder does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Vestrel {

using ByteSpan = std::span<const std::uint8_t>;

// Identifier octets, as they stand in an encoding.
namespace Ber {
inline constexpr std::uint8_t boolean = 0x01;
inline constexpr std::uint8_t integer = 0x02;
inline constexpr std::uint8_t bitString = 0x03;
inline constexpr std::uint8_t octetString = 0x04;
inline constexpr std::uint8_t objectIdentifier = 0x06;
inline constexpr std::uint8_t ia5String = 0x16;
inline constexpr std::uint8_t utcTime = 0x17;
inline constexpr std::uint8_t generalizedTime = 0x18;
inline constexpr std::uint8_t sequence = 0x30;
inline constexpr std::uint8_t set = 0x31;

// A context-specific tag; `number` is below 31.
constexpr std::uint8_t contextPrimitive(unsigned number) {
    return static_cast<std::uint8_t>(0x80U | number);
}

constexpr std::uint8_t contextConstructed(unsigned number) {
    return static_cast<std::uint8_t>(0xa0U | number);
}
} // namespace Ber

struct BerElement {
    std::uint8_t tag = 0;
    ByteSpan content;  // of an indefinite length: with its end marker
    ByteSpan encoding; // header and content
    bool indefinite = false;
};

// A cursor over the elements of one container. It only views the bytes, which must outlive it.
//
// Its leniency is the kernel's: lengths of at most two bytes but not necessarily the shortest,
// indefinite lengths, and a container whose constructed bit is not set. High tag numbers are
// refused. An operation that returns false leaves the cursor and the output as they were.
class BerReader {
public:
    BerReader() = default;

    explicit BerReader(ByteSpan bytes) : rest_(bytes) {}

    bool atEnd() const { return rest_.empty(); }

    // Whether the next element carries this tag.
    bool nextIs(std::uint8_t tag) const;

    // Takes the next element, whatever it is.
    bool any(BerElement& element);

    // Takes the next element, which must carry this tag.
    bool take(std::uint8_t tag, BerElement& element);

    // Takes the next element, which must carry this tag, to read what is inside.
    bool enter(std::uint8_t tag, BerReader& inside);

    // Takes the next element if it carries this tag; false only when it does and is malformed.
    bool skipOptional(std::uint8_t tag);

private:
    ByteSpan rest_;
};

} // namespace Vestrel
