// SPDX-License-Identifier: Apache-2.0
// The names in a certificate.
#pragma once

#include "keymodel/BerReader.h"

namespace Vestrel {

// The parts of a name that the kernel looks at. Of several values of one kind the last one counts,
// even an empty one.
struct NameParts {
    ByteSpan commonName;
    ByteSpan organization;
    ByteSpan email;
};

struct CertificateName {
    NameParts parts;
    ByteSpan content; // all of it, which is what the kernel compares names by
};

// Takes a name from the reader; a name without any part is refused.
bool readName(BerReader& in, CertificateName& name);

// Takes the general names under context tag 1 if they are there. Of several directory names the
// last one stays in `directoryName`.
bool readGeneralNames(BerReader& in, CertificateName& directoryName);

} // namespace Vestrel
