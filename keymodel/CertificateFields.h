// SPDX-License-Identifier: Apache-2.0
// The fields of an X.509 certificate that the kernel names its key after.
#pragma once

#include "keymodel/BerReader.h"

#include <optional>

namespace Vestrel {

// The parts of a name that the kernel looks at. Of several values of one kind the last one counts,
// even an empty one.
struct NameParts {
    ByteSpan commonName;
    ByteSpan organization;
    ByteSpan email;
};

// Views into the certificate that was read.
struct CertificateFields {
    NameParts subject;
    ByteSpan serialNumber; // content octets, with the leading zero where there is one
    std::optional<ByteSpan> subjectKeyIdentifier;
};

// Reads a certificate as strictly, and as leniently, as the kernel's parser: general libraries
// refuse names and serial numbers that the kernel takes. Bytes behind the certificate do not
// matter. Algorithms are not judged, as which of them are known differs between kernels; neither
// signature nor key is verified. Empty when the bytes are not a readable certificate.
std::optional<CertificateFields> readCertificate(ByteSpan der);

} // namespace Vestrel
