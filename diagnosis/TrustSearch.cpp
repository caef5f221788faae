// SPDX-License-Identifier: Apache-2.0
// Matches issuers with the descriptions of trusted keys, and with certificate files at hand.
#include "diagnosis/TrustSearch.h"

#include "diagnosis/SignatureCheck.h"
#include "keymodel/CertificateDescription.h"

#include <algorithm>
#include <optional>

namespace Vestrel {

namespace {

constexpr std::string_view separator = ": ";

using Identifier = std::vector<std::uint8_t>;

bool same(ByteSpan a, ByteSpan b) {
    return std::ranges::equal(a, b);
}

// The kernel's identity of a certificate: serial number and issuer, run together.
Identifier joined(ByteSpan serialNumber, ByteSpan issuer) {
    Identifier identifier(serialNumber.begin(), serialNumber.end());
    identifier.insert(identifier.end(), issuer.begin(), issuer.end());
    return identifier;
}

std::optional<Identifier> authorityIdentity(const AuthorityIdentifier& authority) {
    return authority.serialNumber
               ? std::optional(joined(*authority.serialNumber, authority.issuer.content))
               : std::nullopt;
}

Identifier identity(const CertificateFields& certificate) {
    return joined(certificate.serialNumber, certificate.issuer.content);
}

bool isHex(std::string_view text) {
    return text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

// Whether it is as the kernel itself makes it, which ends with the key's identifier.
bool showsIdentifier(std::string_view key) {
    const std::size_t end = key.rfind(separator);
    return end != std::string_view::npos && end + separator.size() < key.size() &&
           isHex(key.substr(end + separator.size()));
}

// Whether a key of this description may be the issuer's, by what a description shows.
bool mayBeIssuer(std::string_view key, const CertificateFields& certificate) {
    const AuthorityIdentifier& authority = certificate.authority;
    if (authority.keyIdentifier) {
        return key.ends_with(std::string(separator) + hexOf(*authority.keyIdentifier));
    }
    if (authority.serialNumber) {
        return true; // a description shows neither issuer nor, as a rule, serial number
    }
    const std::string name = keyName(certificate.issuer.parts) + std::string(separator);
    return key.starts_with(name) && isHex(key.substr(name.size()));
}

// Whether the certificate at hand is the issuer's, by what the kernel compares.
bool isIssuer(const CertificateFields& candidate, const CertificateFields& certificate) {
    const AuthorityIdentifier& authority = certificate.authority;
    const auto wanted = authorityIdentity(authority);
    const bool isKey = authority.keyIdentifier && candidate.subjectKeyIdentifier &&
                       same(*authority.keyIdentifier, *candidate.subjectKeyIdentifier);
    if (wanted) {
        return identity(candidate) == *wanted && (!authority.keyIdentifier || isKey);
    }
    return authority.keyIdentifier ? isKey
                                   : same(candidate.subject.content, certificate.issuer.content);
}

struct Outcome {
    TrustState state = TrustState::notVerifiable;
    std::string path;
    std::string algorithm;
};

TrustState trustState(SignatureState state) {
    switch (state) {
    case SignatureState::good:
        return TrustState::verified;
    case SignatureState::bad:
        return TrustState::badSignature;
    case SignatureState::notVerifiable:
        break;
    }
    return TrustState::notVerifiable;
}

// What the key of that certificate is to the other one.
Outcome outcomeOf(const StockedCertificate& candidate, const CertificateFields& fields,
                  const CertificateFields& certificate) {
    return {isIssuer(fields, certificate)
                ? trustState(signatureState(certificate, fields.publicKey))
                : TrustState::noIssuer,
            candidate.path, keyAlgorithm(fields.publicKey).value_or("")};
}

// What the key of that description is to the certificate, by the files that carry the description.
Outcome outcomeOf(const std::string& key, const CertificateFields& certificate,
                  const CertificateStock& stock) {
    std::optional<Outcome> outcome;
    for (const StockedCertificate& candidate : stock.certificates()) {
        const auto fields =
            candidate.description == key ? readCertificate(candidate.der) : std::nullopt;
        if (!fields) {
            continue;
        }
        const Outcome next = outcomeOf(candidate, *fields, certificate);
        // Files of one description that differ: which of them is the key's is not to be seen.
        const bool isSplit = outcome && outcome->state != next.state;
        outcome = isSplit ? Outcome{} : next;
        if (isSplit) {
            break;
        }
    }
    return outcome.value_or(Outcome{});
}

} // namespace

TrustScope trustScope(std::string_view keyring, const KernelView& kernel) {
    if (keyring == ".ima") {
        // A kernel without the machine keyring may have been built to accept secondary keys too.
        const KeyringView* const machine = kernel.keyring(".machine");
        return {{".builtin_trusted_keys"}, machine != nullptr && machine->error == 0};
    }
    TrustScope scope{{std::string(keyring)}, keyring == ".secondary_trusted_keys"};
    if (const KeyringView* const view = kernel.keyring(keyring); view != nullptr) {
        scope.keyrings.insert(scope.keyrings.end(), view->keyrings.begin(), view->keyrings.end());
    }
    return scope;
}

Trust trustIn(const KeyringView& keyring, const CertificateFields& certificate,
              const CertificateStock& stock) {
    std::optional<Trust> trust;
    for (const std::string& key : keyring.keys) {
        if (!mayBeIssuer(key, certificate)) {
            continue;
        }
        const Outcome outcome = outcomeOf(key, certificate, stock);
        if (outcome.state == TrustState::noIssuer) {
            continue;
        }
        // The kernel tries the one that it comes upon first.
        const bool isSplit = trust && trust->state != outcome.state;
        trust = Trust{isSplit ? TrustState::notVerifiable : outcome.state, keyring.name, key,
                      outcome.path, outcome.algorithm};
        if (isSplit) {
            break;
        }
    }
    return trust.value_or(Trust{});
}

const std::string* unidentifiedKey(const KeyringView& keyring) {
    const auto found = std::ranges::find_if_not(keyring.keys, showsIdentifier);
    return found == keyring.keys.end() ? nullptr : &*found;
}

bool isSelfSigned(const CertificateFields& certificate, bool& isContradictory) {
    isContradictory = false;
    if (!same(certificate.subject.content, certificate.issuer.content)) {
        return false;
    }
    const AuthorityIdentifier& authority = certificate.authority;
    const auto wanted = authorityIdentity(authority);
    if (!wanted && !authority.keyIdentifier) {
        return true;
    }
    const bool isKey = authority.keyIdentifier && certificate.subjectKeyIdentifier &&
                       same(*authority.keyIdentifier, *certificate.subjectKeyIdentifier);
    const bool isIdentity = wanted && *wanted == identity(certificate);
    isContradictory = isKey != isIdentity && authority.keyIdentifier && wanted;
    return isKey || isIdentity;
}

} // namespace Vestrel
