// SPDX-License-Identifier: Apache-2.0
// The steps that the kernel takes with a certificate that it could read.
#include "diagnosis/Examination.h"

#include "diagnosis/Remarks.h"
#include "diagnosis/SignatureCheck.h"
#include "keymodel/CertificateDescription.h"

#include <algorithm>
#include <utility>

namespace Vestrel {

namespace {

constexpr std::pair kernelOfTheRules(6, 1);

std::string listed(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    }
    return text;
}

} // namespace

Finding Examination::finding() const {
    for (const auto step :
         {&Examination::algorithms, &Examination::blacklist, &Examination::ownSignature}) {
        if (auto finding = (this->*step)()) {
            return *finding;
        }
    }
    return trust();
}

bool Examination::isNewer() const {
    return std::pair(kernel_.major, kernel_.minor) > kernelOfTheRules;
}

bool Examination::isOlder() const {
    return std::pair(kernel_.major, kernel_.minor) < kernelOfTheRules;
}

std::string Examination::release() const {
    return std::to_string(kernel_.major) + "." + std::to_string(kernel_.minor);
}

Finding Examination::unsupported(const std::string& what) const {
    return isNewer() ? unknown(Reason::unknownRule, "whether kernel " + release() + " knows " +
                                                        what + " cannot be known")
                     : refused(Reason::unsupportedAlgorithm, "the kernel does not know " + what);
}

std::optional<Finding> Examination::algorithms() const {
    if (!signatureAlgorithm(certificate_)) {
        return unsupported("the signature algorithm " +
                           algorithmText(certificate_.signatureAlgorithm));
    }
    if (!keyAlgorithm(certificate_.publicKey)) {
        const CertificatePublicKey& key = certificate_.publicKey;
        return unsupported("keys of the type " +
                           algorithmText(key.curve.empty() ? key.algorithm : key.curve));
    }
    return std::nullopt;
}

std::optional<Finding> Examination::blacklist() const {
    const auto hash = hashOfSigned(certificate_, *signatureAlgorithm(certificate_));
    if (kernel_.blacklist && hash && kernel_.blacklist->contains("tbs:" + *hash)) {
        return refused(Reason::blacklisted, "it is in the kernel's .blacklist");
    }
    return std::nullopt;
}

std::optional<Finding> Examination::ownSignature() const {
    bool isContradictory = false;
    if (!isSelfSigned(certificate_, isContradictory)) {
        return std::nullopt;
    }
    if (isContradictory) {
        return refused(Reason::badSignature, "its authority key identifier is only half its own");
    }
    if (signatureState(certificate_, certificate_.publicKey) == SignatureState::bad) {
        return refused(Reason::badSignature, "its own key did not make its signature");
    }
    return std::nullopt;
}

std::optional<Finding> Examination::newerRules() const {
    if (!isUsageIgnored() && !isForSigningOnly(certificate_)) {
        return unknown(Reason::unknownRule,
                       "whether kernel " + release() +
                           " takes a certificate that is not for digital signatures only "
                           "cannot be known");
    }
    return std::nullopt;
}

std::optional<Finding> Examination::narrowedTrust() const {
    return kernel_.isTrustNarrowed
               ? MaybeFinding(unknown(Reason::unknownRule,
                                      "ca_keys= on the kernel's command line narrows whom it "
                                      "trusts"))
               : std::nullopt;
}

// Such as: "Example: Authority" (key identifier 0123...)
std::string Examination::issuerText() const {
    std::string text = "\"" + keyName(certificate_.issuer.parts) + "\"";
    if (const auto& identifier = certificate_.authority.keyIdentifier) {
        text += " (key identifier " + hexOf(*identifier) + ")";
    }
    return text;
}

// Empty where every key of the keyring can be told.
std::string Examination::unidentifiedText(const KeyringView& keyring) const {
    const std::string* const key = unidentifiedKey(keyring);
    return key == nullptr
               ? ""
               : "a key named \"" + *key + "\" in " + keyring.name + " may be its issuer " +
                     issuerText() + "; that key's identifier is not shown";
}

// The kernel goes by a key's identifier, whatever its description is.
std::optional<Finding> Examination::unidentified() const {
    for (const std::string& name : scope_.keyrings) {
        const KeyringView* const keyring = kernel_.keyring(name);
        std::string text = keyring == nullptr ? "" : unidentifiedText(*keyring);
        if (!text.empty()) {
            return unknown(Reason::unverifiableSignature, std::move(text));
        }
    }
    return std::nullopt;
}

// In the keyrings of the scope, one after the other. One that cannot be seen makes it unknown.
Trust Examination::search(bool& sawAll) const {
    std::optional<Trust> found;
    for (const std::string& name : scope_.keyrings) {
        const KeyringView* const keyring = kernel_.keyring(name);
        if (keyring == nullptr || keyring->error != 0) {
            sawAll = false;
            continue;
        }
        Trust trust = trustIn(*keyring, certificate_, stock_);
        if (trust.state == TrustState::noIssuer) {
            continue;
        }
        if (found && found->state != trust.state) {
            trust.state = TrustState::notVerifiable;
        }
        found = trust;
    }
    return found.value_or(Trust{});
}

Finding Examination::trust() const {
    bool sawAll = true;
    const Trust trust = search(sawAll);
    const std::string issuer = issuerText();
    switch (trust.state) {
    case TrustState::verified:
        return verified(trust);
    case TrustState::badSignature:
        return refused(Reason::badSignature, "the key of " + issuer + " in " + trust.keyring +
                                                 " did not make its signature (verified with " +
                                                 trust.path + ")");
    case TrustState::notVerifiable:
        return unknown(Reason::unverifiableSignature,
                       "it names " + issuer + " as its issuer, and \"" + trust.description +
                           "\" is in " + trust.keyring +
                           "; whether that key signed it cannot be known without the issuer's "
                           "certificate");
    case TrustState::noIssuer:
        break;
    }
    if (auto finding = unidentified()) {
        return *finding;
    }
    return sawAll ? noIssuer(issuer)
                  : unknown(Reason::invisibleKeyring,
                            "not every keyring that may hold " + issuer + " can be read");
}

Finding Examination::verified(const Trust& trust) const {
    if (isOlder()) {
        return unknown(Reason::unknownRule, "the rules of kernel " + release() + " are not known");
    }
    for (const std::string& name : {signatureAlgorithm(certificate_)->hash, trust.algorithm}) {
        if (!kernel_.algorithms || !kernel_.algorithms->contains(name)) {
            return unknown(Reason::unknownRule,
                           "whether this kernel has " + name + " cannot be known");
        }
    }
    if (!kernel_.blacklist) {
        return unknown(Reason::invisibleKeyring, "the kernel's .blacklist cannot be read");
    }
    for (const auto step : {&Examination::newerRules, &Examination::narrowedTrust}) {
        if (auto finding = (this->*step)()) {
            return *finding;
        }
    }
    return {Verdict::accepted, Reason::none,
            "signed by \"" + trust.description + "\" in " + trust.keyring};
}

// A keyring that has the issuer without being asked for it.
std::string Examination::elsewhere() const {
    for (const KeyringView& keyring : kernel_.keyrings) {
        if (std::ranges::find(scope_.keyrings, keyring.name) == scope_.keyrings.end() &&
            trustIn(keyring, certificate_, stock_).state != TrustState::noIssuer) {
            return keyring.name;
        }
    }
    return {};
}

Finding Examination::noIssuer(const std::string& issuer) const {
    std::string why = "its issuer " + issuer + " is not in " + listed(scope_.keyrings);
    const std::string other = elsewhere();
    if (!other.empty()) {
        why += " but in " + other;
    }
    if (!scope_.isKnown && !other.empty()) {
        return unknown(Reason::unknownRule,
                       why + "; whether that counts for " + keyring_ + " cannot be known");
    }
    for (const KeyringView& keyring : kernel_.keyrings) {
        const std::string text = scope_.isKnown ? "" : unidentifiedText(keyring);
        if (!text.empty()) {
            why.append("; ").append(text).append(", nor whether it counts for ").append(keyring_);
            return unknown(Reason::unknownRule, why);
        }
    }
    return refused(Reason::noTrustedIssuer, why);
}

} // namespace Vestrel
