// SPDX-License-Identifier: Apache-2.0
// One readable certificate on its way into one keyring.
#pragma once

#include "diagnosis/Diagnosis.h"
#include "diagnosis/TrustSearch.h"
#include "keymodel/CertificateFields.h"

#include <optional>
#include <string>
#include <vector>

namespace Vestrel {

// Views its arguments, which must outlive it.
class Examination {
public:
    Examination(const CertificateFields& certificate, const std::string& keyring,
                const Surroundings& surroundings)
        : certificate_(certificate), keyring_(keyring), kernel_(surroundings.kernel),
          stock_(surroundings.stock), scope_(trustScope(keyring, kernel_)) {}

    // Takes the kernel's steps in their order; the first that does not pass is the finding.
    Finding finding() const;

    const std::vector<std::string>& trusted() const { return scope_.keyrings; }

    // Whether this kernel takes keys into the keyring whatever they are for.
    bool isUsageIgnored() const { return !isNewer() || keyring_ != ".ima"; }

private:
    using MaybeFinding = std::optional<Finding>;

    bool isNewer() const;
    bool isOlder() const;
    std::string release() const;
    Finding unsupported(const std::string& what) const;

    MaybeFinding algorithms() const;
    MaybeFinding blacklist() const;
    MaybeFinding ownSignature() const;
    MaybeFinding unidentified() const;
    MaybeFinding newerRules() const;
    MaybeFinding narrowedTrust() const;
    Finding trust() const;

    std::string issuerText() const;
    std::string unidentifiedText(const KeyringView& keyring) const;
    Trust search(bool& sawAll) const;
    Finding verified(const Trust& trust) const;
    std::string elsewhere() const;
    Finding noIssuer(const std::string& issuer) const;

    const CertificateFields& certificate_;
    const std::string& keyring_;
    const KernelView& kernel_;
    const CertificateStock& stock_;
    const TrustScope scope_;
};

} // namespace Vestrel
