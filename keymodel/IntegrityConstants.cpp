// SPDX-License-Identifier: Apache-2.0
// The fixed certificate directories.
#include "keymodel/IntegrityConstants.h"

#include <string>
#include <string_view>

namespace Vestrel {

Orvo::String IntegrityConstants::integrityKeyPathPrefix() const {
    return "/etc/keys";
}

Orvo::String IntegrityConstants::keyringPathPrefix(const Orvo::String& keyringName) const {
    std::string_view directory = keyringName;
    if (directory.starts_with('.')) {
        directory.remove_prefix(1);
    }
    return std::string(integrityKeyPathPrefix().view()) + "/" + std::string(directory);
}

} // namespace Vestrel
