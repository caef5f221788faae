// SPDX-License-Identifier: Apache-2.0
// The managed keyrings, as the verbs see them.
#pragma once

#include "diagnosis/Diagnosis.h"

#include <keyutils.h>

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Vestrel {

// The word of the command line that names a managed keyring, with or without its leading dot.
void addKeyring(CLI::App& verb, std::string& keyring);

// The same, where all keyrings are meant without it.
void addOptionalKeyring(CLI::App& verb, std::string& keyring);

// Files with certificates of issuers that lie in no directory.
void addIssuers(CLI::App& verb, std::vector<std::string>& issuers);

// What the running kernel shows, the certificate directories, the issuers' files, and now. Throws
// std::runtime_error when one of the issuers' files holds no certificate.
Surroundings surroundings(const std::vector<std::string>& issuers = {});

// The serials of the keys in the kernel's keyring that carry the description; none when the keyring
// cannot be read.
std::vector<key_serial_t> keysOf(const std::string& keyring, const std::string& description);

} // namespace Vestrel
