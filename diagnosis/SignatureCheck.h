// SPDX-License-Identifier: Apache-2.0
// The algorithms of certificates, and whether a signature is good.
#pragma once

#include "keymodel/CertificateFields.h"

#include <optional>
#include <string>

namespace Vestrel {

// An algorithm that the kernel's certificate parser knows, under the kernel's names for it.
struct SignatureAlgorithm {
    std::string hash;   // such as "sha256"
    std::string cipher; // "rsa", "ecdsa", "ecrdsa" or "sm2"
};

// Nothing for an algorithm that a kernel 6.1 does not know.
std::optional<SignatureAlgorithm> signatureAlgorithm(const CertificateFields& certificate);

// The kernel's name of the key's algorithm, such as "rsa" or "ecdsa-nist-p256"; the same.
std::optional<std::string> keyAlgorithm(const CertificatePublicKey& key);

// An algorithm as people know it: a name, or else the numbers of its object identifier, or its
// bytes where it is none.
std::string algorithmText(ByteSpan objectIdentifier);

// The hash of what is signed, in the kernel's writing. Nothing when OpenSSL lacks the algorithm.
std::optional<std::string> hashOfSigned(const CertificateFields& certificate,
                                        const SignatureAlgorithm& algorithm);

enum class SignatureState { good, bad, notVerifiable };

// Whether the key made the certificate's signature. Not verifiable where OpenSSL lacks the
// algorithm or cannot read the key.
SignatureState signatureState(const CertificateFields& certificate,
                              const CertificatePublicKey& key);

} // namespace Vestrel
