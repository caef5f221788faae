// SPDX-License-Identifier: Apache-2.0
// The grammar of names: every operation takes one production from the reader, or fails.
#include "keymodel/CertificateName.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Vestrel {

namespace {

constexpr std::array<std::uint8_t, 3> commonNameId{0x55, 0x04, 0x03};
constexpr std::array<std::uint8_t, 3> organizationId{0x55, 0x04, 0x0a};
constexpr std::array<std::uint8_t, 9> emailAddressId{0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                     0x0d, 0x01, 0x09, 0x01};

bool same(ByteSpan a, ByteSpan b) {
    return std::ranges::equal(a, b);
}

// The kernel keeps the size of a name part in one byte.
ByteSpan namePart(ByteSpan value) {
    return value.first(value.size() & 0xffU);
}

void notePart(NameParts& parts, ByteSpan id, ByteSpan value) {
    if (same(id, commonNameId)) {
        parts.commonName = namePart(value);
    } else if (same(id, organizationId)) {
        parts.organization = namePart(value);
    } else if (same(id, emailAddressId)) {
        parts.email = namePart(value);
    }
}

bool readAttribute(BerReader& in, NameParts& parts) {
    BerReader attribute;
    BerElement id;
    BerElement value;
    if (!in.enter(Ber::sequence, attribute) || !attribute.take(Ber::objectIdentifier, id) ||
        !attribute.any(value) || !attribute.atEnd()) {
        return false;
    }
    notePart(parts, id.content, value.content);
    return true;
}

bool readRelativeName(BerReader& in, NameParts& parts) {
    BerReader attributes;
    if (!in.enter(Ber::set, attributes)) {
        return false;
    }
    do {
        if (!readAttribute(attributes, parts)) {
            return false;
        }
    } while (!attributes.atEnd());
    return true;
}

// What one form of general name, numbered by its tag, has to hold: an element with this tag, a
// name, or anything at all.
constexpr std::uint8_t anything = 0;
constexpr std::array<std::uint8_t, 9> generalNameForms{
    anything,       Ber::ia5String,   Ber::ia5String,       anything, Ber::sequence, anything,
    Ber::ia5String, Ber::octetString, Ber::objectIdentifier};

bool readGeneralNameContent(BerReader& in, std::uint8_t form, CertificateName& directoryName) {
    BerElement element;
    if (form == Ber::sequence) {
        return readName(in, directoryName);
    }
    return form == anything ? in.any(element) : in.take(form, element);
}

bool readGeneralName(BerReader& in, CertificateName& directoryName) {
    for (unsigned number = 0; number < generalNameForms.size(); ++number) {
        BerReader inside;
        if (in.nextIs(Ber::contextConstructed(number))) {
            return in.enter(Ber::contextConstructed(number), inside) &&
                   readGeneralNameContent(inside, generalNameForms[number], directoryName) &&
                   inside.atEnd();
        }
    }
    return false;
}

} // namespace

bool readName(BerReader& in, CertificateName& name) {
    BerElement whole;
    BerReader outer = in;
    BerReader relativeNames;
    if (!outer.take(Ber::sequence, whole) || !in.enter(Ber::sequence, relativeNames)) {
        return false;
    }
    name = {.parts = {}, .content = whole.content};
    do {
        if (!readRelativeName(relativeNames, name.parts)) {
            return false;
        }
    } while (!relativeNames.atEnd());
    return true;
}

bool readGeneralNames(BerReader& in, CertificateName& directoryName) {
    BerReader names;
    if (!in.nextIs(Ber::contextConstructed(1))) {
        return true;
    }
    if (!in.enter(Ber::contextConstructed(1), names)) {
        return false;
    }
    while (!names.atEnd()) {
        if (!readGeneralName(names, directoryName)) {
            return false;
        }
    }
    return true;
}

} // namespace Vestrel
