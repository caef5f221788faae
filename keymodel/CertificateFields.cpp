// SPDX-License-Identifier: Apache-2.0
// The certificate's grammar: every operation takes one production from the reader, or fails.
#include "keymodel/CertificateFields.h"

#include "keymodel/CertificateTime.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Vestrel {

namespace {

constexpr std::array<std::uint8_t, 7> ecPublicKeyId{0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01};
constexpr std::array<std::uint8_t, 3> subjectKeyIdentifierId{0x55, 0x1d, 0x0e};
constexpr std::array<std::uint8_t, 3> authorityKeyIdentifierId{0x55, 0x1d, 0x23};
constexpr std::array<std::uint8_t, 3> keyUsageId{0x55, 0x1d, 0x0f};
constexpr std::array<std::uint8_t, 3> basicConstraintsId{0x55, 0x1d, 0x13};

struct Algorithm {
    ByteSpan id;
    ByteSpan parameters; // the whole element
};

struct Extensions {
    std::optional<ByteSpan> subjectKeyIdentifier;
    std::optional<ByteSpan> authorityKeyIdentifier; // still encoded, as the others
    std::optional<ByteSpan> keyUsage;
    std::optional<ByteSpan> basicConstraints;
};

bool same(ByteSpan a, ByteSpan b) {
    return std::ranges::equal(a, b);
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

bool readTime(BerReader& in, BerElement& time) {
    return in.any(time) && isCertificateTime(time.tag, time.content);
}

// The kernel takes a missing end for the beginning once more.
bool readValidity(BerReader& in, CertificateFields& fields) {
    BerReader validity;
    if (!in.enter(Ber::sequence, validity) || !readTime(validity, fields.notBefore)) {
        return false;
    }
    fields.notAfter = fields.notBefore;
    return validity.atEnd() || (readTime(validity, fields.notAfter) && validity.atEnd());
}

// A bit string of whole bytes.
bool readBits(BerReader& in, ByteSpan& bytes) {
    BerElement bits;
    if (!in.take(Ber::bitString, bits) || bits.content.empty() || bits.content[0] != 0) {
        return false;
    }
    bytes = bits.content.subspan(1);
    return true;
}

// The parameters of an elliptic curve key name the curve, the length in its shortest form.
bool namesCurve(ByteSpan parameters) {
    return parameters.size() >= 3 && parameters[0] == Ber::objectIdentifier &&
           parameters[1] == parameters.size() - 2;
}

bool readPublicKey(BerReader& in, CertificatePublicKey& key) {
    BerElement whole;
    BerReader outer = in;
    BerReader inside;
    Algorithm algorithm;
    ByteSpan bits;
    if (!outer.take(Ber::sequence, whole) || !in.enter(Ber::sequence, inside) ||
        !readAlgorithm(inside, algorithm)) {
        return false;
    }
    const bool isOnCurve = same(algorithm.id, ecPublicKeyId);
    if (isOnCurve && !namesCurve(algorithm.parameters)) {
        return false;
    }
    key = {.encoding = whole.encoding,
           .algorithm = algorithm.id,
           .curve = isOnCurve ? algorithm.parameters.subspan(2) : ByteSpan()};
    return readBits(inside, bits) && inside.atEnd();
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
    } else if (same(id.content, keyUsageId)) {
        extensions.keyUsage = value.content;
    } else if (same(id.content, basicConstraintsId)) {
        extensions.basicConstraints = value.content;
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

// Takes a primitive element with that context tag if it is there.
bool readOptional(BerReader& in, unsigned number, std::optional<ByteSpan>& content) {
    BerElement element;
    if (!in.nextIs(Ber::contextPrimitive(number))) {
        return true;
    }
    if (!in.take(Ber::contextPrimitive(number), element)) {
        return false;
    }
    content = element.content;
    return true;
}

bool readAuthorityIdentifier(ByteSpan value, AuthorityIdentifier& authority) {
    BerReader reader(value);
    BerReader inside;
    return reader.enter(Ber::sequence, inside) &&
           readOptional(inside, 0, authority.keyIdentifier) &&
           readGeneralNames(inside, authority.issuer) &&
           readOptional(inside, 2, authority.serialNumber) && inside.atEnd();
}

bool readToBeSigned(BerReader& in, CertificateFields& fields) {
    BerElement whole;
    BerReader outer = in;
    BerReader inside;
    BerElement serialNumber;
    Algorithm signature;
    Extensions extensions;
    if (!outer.take(Ber::sequence, whole) || !in.enter(Ber::sequence, inside) ||
        !readVersion(inside) || !inside.take(Ber::integer, serialNumber) ||
        !readAlgorithm(inside, signature) || !readName(inside, fields.issuer) ||
        !readValidity(inside, fields) || !readName(inside, fields.subject) ||
        !readPublicKey(inside, fields.publicKey) ||
        !inside.skipOptional(Ber::contextPrimitive(1)) ||
        !inside.skipOptional(Ber::contextPrimitive(2)) || !readExtensions(inside, extensions) ||
        !inside.atEnd()) {
        return false;
    }
    fields.toBeSigned = whole.encoding;
    fields.serialNumber = serialNumber.content;
    fields.signatureAlgorithm = signature.id;
    fields.subjectKeyIdentifier = extensions.subjectKeyIdentifier;
    fields.keyUsage = extensions.keyUsage;
    fields.basicConstraints = extensions.basicConstraints;
    return !extensions.authorityKeyIdentifier ||
           readAuthorityIdentifier(*extensions.authorityKeyIdentifier, fields.authority);
}

} // namespace

std::optional<CertificateFields> readCertificate(ByteSpan der) {
    BerReader reader(der);
    BerReader inside;
    CertificateFields fields;
    Algorithm used;
    const bool readable = der.size() <= maxCertificateSize && reader.enter(Ber::sequence, inside) &&
                          readToBeSigned(inside, fields) && readAlgorithm(inside, used) &&
                          same(fields.signatureAlgorithm, used.id) &&
                          readBits(inside, fields.signature) && inside.atEnd();
    return readable ? std::optional(fields) : std::nullopt;
}

} // namespace Vestrel
