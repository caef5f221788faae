// SPDX-License-Identifier: Apache-2.0
// The description that a certificate's key gets in the kernel.
#pragma once

#include "keymodel/CertificateName.h"

#include <cstdint>
#include <span>
#include <string>

namespace Vestrel {

// The description that the kernel proposes for an asymmetric key loaded from this certificate, byte
// for byte, computed from the bytes alone. `der` is what is handed to the kernel, so DER and not
// PEM. Empty for what is not a readable certificate. Throws only when memory runs out.
//
// The bytes of names are passed on as they stand in the certificate, whatever their string type,
// up to the first NUL: the result may hold any other byte.
std::string certificateDescription(std::span<const std::uint8_t> der);

// The part of a description that stands before ": " and the identifier.
std::string keyName(const NameParts& subject);

// As the kernel writes an identifier, two digits a byte.
std::string hexOf(ByteSpan bytes);

} // namespace Vestrel
