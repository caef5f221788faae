// SPDX-License-Identifier: Apache-2.0
// The fields of an X.509 certificate that matter to the kernel.
#pragma once

#include "keymodel/BerReader.h"
#include "keymodel/CertificateName.h"

#include <cstddef>
#include <optional>

namespace Vestrel {

// What is handed to the kernel may not be larger, trailing bytes included.
inline constexpr std::size_t maxCertificateSize = 65535;

// Whom the authority key identifier names: by key, or by the authority's own issuer and serial
// number, or both.
struct AuthorityIdentifier {
    std::optional<ByteSpan> keyIdentifier;
    CertificateName issuer;
    std::optional<ByteSpan> serialNumber;
};

struct CertificatePublicKey {
    ByteSpan encoding;  // the whole of it, as general libraries read it
    ByteSpan algorithm; // content octets of the object identifier
    ByteSpan curve;     // the same; empty when the key is not on a named curve
};

// Views into the certificate that was read. Names and the key description are made of the first
// three; the others are what the kernel judges the certificate by, or ignores.
struct CertificateFields {
    CertificateName subject;
    ByteSpan serialNumber; // content octets, with the leading zero where there is one
    std::optional<ByteSpan> subjectKeyIdentifier;

    CertificateName issuer;
    AuthorityIdentifier authority;
    CertificatePublicKey publicKey;
    ByteSpan toBeSigned;         // the whole element
    ByteSpan signatureAlgorithm; // content octets of the object identifier
    ByteSpan signature;

    BerElement notBefore;
    BerElement notAfter;
    std::optional<ByteSpan> keyUsage; // still encoded
    std::optional<ByteSpan> basicConstraints;
};

// Reads a certificate as strictly, and as leniently, as the kernel's parser: general libraries
// refuse names and serial numbers that the kernel takes. Bytes behind the certificate do not
// matter. Algorithms are not judged, as which of them are known differs between kernels; neither
// signature nor key is verified. Empty when the bytes are not a readable certificate.
std::optional<CertificateFields> readCertificate(ByteSpan der);

} // namespace Vestrel
