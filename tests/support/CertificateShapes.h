// SPDX-License-Identifier: Apache-2.0
// The shapes of certificates that the tests try, with what the kernel makes of each.
#pragma once

#include "tests/support/CertificateMaker.h"

#include <functional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

struct CertificateShape {
    std::string name;
    std::string description; // of its key; empty: not a readable certificate
    bool kernelAccepts;      // in a keyring that trusts the authority
    std::function<Bytes(const CertificateAuthority&)> file; // DER, or PEM where the name says so
};

// Names are unique, and fit for file names.
std::vector<CertificateShape> certificateShapes();

} // namespace Vestrel::Tests
