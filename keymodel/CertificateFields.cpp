// SPDX-License-Identifier: Apache-2.0
// The certificate's grammar: every operation takes one production from the reader, or fails.
#include "keymodel/CertificateFields.h"

#include "keymodel/CertificateTime.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Vestrel {

namespace {

constexpr std::size_t maxCertificateSize = 65535; // of what is handed over, trailing bytes included

constexpr std::array<std::uint8_t, 3> commonNameId{0x55, 0x04, 0x03};
constexpr std::array<std::uint8_t, 3> organizationId{0x55, 0x04, 0x0a};
constexpr std::array<std::uint8_t, 9> emailAddressId{0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                     0x0d, 0x01, 0x09, 0x01};
constexpr std::array<std::uint8_t, 7> ecPublicKeyId{0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01};
constexpr std::array<std::uint8_t, 3> subjectKeyIdentifierId{0x55, 0x1d, 0x0e};
constexpr std::array<std::uint8_t, 3> authorityKeyIdentifierId{0x55, 0x1d, 0x23};

struct Algorithm {
    ByteSpan id;
    ByteSpan parameters; // the whole element
};

struct Extensions {
    std::optional<ByteSpan> subjectKeyIdentifier;
    std::optional<ByteSpan> authorityKeyIdentifier; // still encoded
};

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

// A name without any part is refused.
bool readName(BerReader& in, NameParts& parts) {
    BerReader relativeNames;
    if (!in.enter(Ber::sequence, relativeNames)) {
        return false;
    }
    do {
        if (!readRelativeName(relativeNames, parts)) {
            return false;
        }
    } while (!relativeNames.atEnd());
    return true;
}

bool readVersion(BerReader& in) {
    BerReader version;
    BerElement number;
    return !in.nextIs(Ber::contextConstructed(0)) ||
           (in.enter(Ber::contextConstructed(0), version) && version.take(Ber::integer, number) &&
            version.atEnd());
}

bool readAlgorithm(BerReader& in, Algorithm& algorithm) {
    BerReader inside;
    BerElement id;
    BerElement parameters;
    if (!in.enter(Ber::sequence, inside) || !inside.take(Ber::objectIdentifier, id)) {
        return false;
    }
    if (!inside.atEnd() && !inside.any(parameters)) {
        return false;
    }
    algorithm = {id.content, parameters.encoding};
    return inside.atEnd();
}

bool readTime(BerReader& in) {
    BerElement time;
    return in.any(time) && isCertificateTime(time.tag, time.content);
}

// The kernel takes a missing end for the beginning once more.
bool readValidity(BerReader& in) {
    BerReader validity;
    return in.enter(Ber::sequence, validity) && readTime(validity) &&
           (validity.atEnd() || (readTime(validity) && validity.atEnd()));
}

// A bit string of whole bytes.
bool readBits(BerReader& in) {
    BerElement bits;
    return in.take(Ber::bitString, bits) && !bits.content.empty() && bits.content[0] == 0;
}

// The parameters of an elliptic curve key name the curve, the length in its shortest form.
bool namesCurve(ByteSpan parameters) {
    return parameters.size() >= 3 && parameters[0] == Ber::objectIdentifier &&
           parameters[1] == parameters.size() - 2;
}

bool readPublicKey(BerReader& in) {
    BerReader inside;
    Algorithm algorithm;
    return in.enter(Ber::sequence, inside) && readAlgorithm(inside, algorithm) &&
           (!same(algorithm.id, ecPublicKeyId) || namesCurve(algorithm.parameters)) &&
           readBits(inside) && inside.atEnd();
}

// An octet string of at least one byte, the length in one byte, and nothing behind it.
bool noteSubjectKeyIdentifier(Extensions& extensions, ByteSpan value) {
    if (extensions.subjectKeyIdentifier || value.size() < 3 || value[0] != Ber::octetString ||
        value[1] != value.size() - 2) {
        return false;
    }
    extensions.subjectKeyIdentifier = value.subspan(2);
    return true;
}

bool readExtension(BerReader& in, Extensions& extensions) {
    BerReader extension;
    BerElement id;
    BerElement value;
    if (!in.enter(Ber::sequence, extension) || !extension.take(Ber::objectIdentifier, id) ||
        !extension.skipOptional(Ber::boolean) || !extension.take(Ber::octetString, value) ||
        !extension.atEnd()) {
        return false;
    }
    if (same(id.content, subjectKeyIdentifierId)) {
        return noteSubjectKeyIdentifier(extensions, value.content);
    }
    if (same(id.content, authorityKeyIdentifierId)) {
        extensions.authorityKeyIdentifier = value.content;
    }
    return true;
}

bool readExtensions(BerReader& in, Extensions& extensions) {
    BerReader wrapper;
    BerReader list;
    if (!in.nextIs(Ber::contextConstructed(3))) {
        return true;
    }
    if (!in.enter(Ber::contextConstructed(3), wrapper) || !wrapper.enter(Ber::sequence, list)) {
        return false;
    }
    do {
        if (!readExtension(list, extensions)) {
            return false;
        }
    } while (!list.atEnd());
    return wrapper.atEnd();
}

// What one form of general name, numbered by its tag, has to hold: an element with this tag, a
// name, or anything at all.
constexpr std::uint8_t anything = 0;
constexpr std::array<std::uint8_t, 9> generalNameForms{
    anything,       Ber::ia5String,   Ber::ia5String,       anything, Ber::sequence, anything,
    Ber::ia5String, Ber::octetString, Ber::objectIdentifier};

bool readGeneralNameContent(BerReader& in, std::uint8_t form) {
    NameParts unused;
    BerElement element;
    if (form == Ber::sequence) {
        return readName(in, unused);
    }
    return form == anything ? in.any(element) : in.take(form, element);
}

bool readGeneralName(BerReader& in) {
    for (unsigned number = 0; number < generalNameForms.size(); ++number) {
        BerReader inside;
        if (in.nextIs(Ber::contextConstructed(number))) {
            return in.enter(Ber::contextConstructed(number), inside) &&
                   readGeneralNameContent(inside, generalNameForms[number]) && inside.atEnd();
        }
    }
    return false;
}

bool readGeneralNames(BerReader& in) {
    BerReader names;
    if (!in.nextIs(Ber::contextConstructed(1))) {
        return true;
    }
    if (!in.enter(Ber::contextConstructed(1), names)) {
        return false;
    }
    while (!names.atEnd()) {
        if (!readGeneralName(names)) {
            return false;
        }
    }
    return true;
}

bool isAuthorityKeyIdentifier(ByteSpan value) {
    BerReader reader(value);
    BerReader inside;
    return reader.enter(Ber::sequence, inside) && inside.skipOptional(Ber::contextPrimitive(0)) &&
           readGeneralNames(inside) && inside.skipOptional(Ber::contextPrimitive(2)) &&
           inside.atEnd();
}

bool readToBeSigned(BerReader& in, CertificateFields& fields, Algorithm& signature) {
    BerReader inside;
    BerElement serialNumber;
    NameParts issuer;
    Extensions extensions;
    if (!in.enter(Ber::sequence, inside) || !readVersion(inside) ||
        !inside.take(Ber::integer, serialNumber) || !readAlgorithm(inside, signature) ||
        !readName(inside, issuer) || !readValidity(inside) || !readName(inside, fields.subject) ||
        !readPublicKey(inside) || !inside.skipOptional(Ber::contextPrimitive(1)) ||
        !inside.skipOptional(Ber::contextPrimitive(2)) || !readExtensions(inside, extensions) ||
        !inside.atEnd()) {
        return false;
    }
    fields.serialNumber = serialNumber.content;
    fields.subjectKeyIdentifier = extensions.subjectKeyIdentifier;
    return !extensions.authorityKeyIdentifier ||
           isAuthorityKeyIdentifier(*extensions.authorityKeyIdentifier);
}

} // namespace

std::optional<CertificateFields> readCertificate(ByteSpan der) {
    BerReader reader(der);
    BerReader inside;
    CertificateFields fields;
    Algorithm claimed;
    Algorithm used;
    const bool readable = der.size() <= maxCertificateSize && reader.enter(Ber::sequence, inside) &&
                          readToBeSigned(inside, fields, claimed) && readAlgorithm(inside, used) &&
                          same(claimed.id, used.id) && readBits(inside) && inside.atEnd();
    return readable ? std::optional(fields) : std::nullopt;
}

} // namespace Vestrel
