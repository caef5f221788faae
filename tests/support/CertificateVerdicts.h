// SPDX-License-Identifier: Apache-2.0
// Files with certificates, good and bad, and what becomes of each in a keyring that trusts one of
// two authorities.
#pragma once

#include "diagnosis/Diagnosis.h"
#include "tests/support/CertificateMaker.h"

#include <functional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

struct CertificateCase {
    std::string name;
    Reason reason; // Reason::none: the kernel takes it
    std::function<Bytes(const CertificateAuthority& trusted, const CertificateAuthority& unknown)>
        file;
};

// All shapes of CertificateShapes.h are among them. Names are unique, and fit for file names.
std::vector<CertificateCase> certificateCases();

} // namespace Vestrel::Tests
