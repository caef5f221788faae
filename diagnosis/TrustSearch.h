// SPDX-License-Identifier: Apache-2.0
// The search for the trusted key that signed a certificate.
#pragma once

#include "diagnosis/CertificateStock.h"
#include "diagnosis/KernelView.h"
#include "keymodel/CertificateFields.h"

#include <string>
#include <string_view>
#include <vector>

namespace Vestrel {

// The keyrings whose keys may sign what goes into a keyring.
struct TrustScope {
    std::vector<std::string> keyrings;
    bool isKnown = true; // otherwise there may be more
};

// For a keyring that user space may write to.
TrustScope trustScope(std::string_view keyring, const KernelView& kernel);

enum class TrustState {
    verified,
    badSignature,
    noIssuer,      // no key of the scope is the issuer's
    notVerifiable, // an issuer's key is there, or may be, without a certificate to verify with
};

struct Trust {
    TrustState state = TrustState::noIssuer;
    std::string keyring;     // where the issuer's key is, or may be
    std::string description; // of that key
    std::string path;        // of its certificate; empty: not at hand
    std::string algorithm;   // of that key, in the kernel's writing; empty likewise
};

// Searches one keyring the way the kernel does: by the authority key identifier, or without one by
// the issuer's name.
Trust trustIn(const KeyringView& keyring, const CertificateFields& certificate,
              const CertificateStock& stock);

// A key that was added under a description of somebody's choice: whose it is cannot be seen. Null:
// there is none.
const std::string* unidentifiedKey(const KeyringView& keyring);

// Whether the certificate says, in the way that the kernel asks for, that its own key signed it.
// `isContradictory`: by one of two identifiers only, which the kernel refuses.
bool isSelfSigned(const CertificateFields& certificate, bool& isContradictory);

} // namespace Vestrel
