// SPDX-License-Identifier: Apache-2.0
// Where the certificate directories of the keyrings are.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/String.h"

namespace Vestrel {

class VESTREL_EXPORT IntegrityConstants {
public:
    // The directory under which the keyrings' certificate directories lie: "/etc/keys".
    Orvo::String integrityKeyPathPrefix() const;

    // The directory of one keyring's certificates, named like the keyring without its leading dot:
    // "/etc/keys/ima" for ".ima".
    Orvo::String keyringPathPrefix(const Orvo::String& keyringName) const;
};

} // namespace Vestrel
