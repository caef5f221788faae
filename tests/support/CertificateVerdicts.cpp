// SPDX-License-Identifier: Apache-2.0
// The table of cases, by what is wrong with each.
#include "tests/support/CertificateVerdicts.h"

#include "tests/support/CertificateShapes.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace Vestrel::Tests {

namespace {

using Cases = std::vector<CertificateCase>;
using Authority = CertificateAuthority;

constexpr std::size_t mostOfACertificate = 65535;
constexpr std::size_t mostOfAKey = 1024UL * 1024 - 1;

CertificateCase trusted(std::string name, Reason reason, const CertificatePlan& plan) {
    return {std::move(name), reason,
            [plan](const Authority& ca, const Authority&) { return ca.issue(plan); }};
}

CertificateCase stranger(std::string name, const CertificatePlan& plan) {
    return {std::move(name), Reason::noTrustedIssuer,
            [plan](const Authority&, const Authority& ca) { return ca.issue(plan); }};
}

CertificateCase changed(std::string name, Reason reason, std::function<void(Bytes&)> change) {
    return {std::move(name), reason,
            [change = std::move(change)](const Authority& ca, const Authority&) {
                Bytes der = ca.issue({});
                change(der);
                return der;
            }};
}

CertificateCase content(std::string name, Reason reason, Bytes bytes) {
    return {std::move(name), reason,
            [bytes = std::move(bytes)](const Authority&, const Authority&) { return bytes; }};
}

// Where the bytes stand; a case that does not find them is no case.
Bytes::iterator found(Bytes& der, const Bytes& wanted, bool isLast) {
    const auto at = isLast ? std::find_end(der.begin(), der.end(), wanted.begin(), wanted.end())
                           : std::search(der.begin(), der.end(), wanted.begin(), wanted.end());
    if (at == der.end()) {
        throw std::logic_error("nothing to change");
    }
    return at;
}

const Bytes serialNumber{0x02, 0x02, 0x12, 0x34};
const Bytes validFrom = bytesOf("200101000000Z");

// The signature stands at the end.
void blankSignature(Bytes& der) {
    std::fill(der.end() - 32, der.end(), std::uint8_t{0});
}

// Its signature algorithm, which is ecdsa-with-SHA256, becomes another identifier of that size.
CertificateCase renamed(std::string name, const Bytes& identifier) {
    return {std::move(name), Reason::unsupportedAlgorithm,
            [identifier](const Authority&, const Authority&) {
                const Bytes replaced{0x2a, 0x86, 0x48, 0xce, 0x3d, 0x04, 0x03, 0x02};
                Bytes der = Authority::generate().issue({});
                for (const bool isLast : {false, true}) { // what is signed names it, too
                    std::ranges::copy(identifier, found(der, replaced, isLast));
                }
                return der;
            }};
}

CertificatePlan authorityBy(AuthorityIdentifier kind) {
    CertificatePlan plan;
    plan.authorityIdentifier = kind;
    return plan;
}

CertificatePlan hashed(const char* hash) {
    CertificatePlan plan;
    plan.hash = hash;
    return plan;
}

CertificatePlan withKey(KeyKind kind) {
    CertificatePlan plan;
    plan.key = kind;
    return plan;
}

CertificatePlan withUsage(std::uint8_t unused, std::uint8_t flags) {
    CertificatePlan plan;
    plan.extensions.push_back({"keyUsage", {0x03, 0x02, unused, flags}, true});
    return plan;
}

Reason reasonOf(const CertificateShape& shape) {
    if (shape.kernelAccepts) {
        return Reason::none;
    }
    return shape.description.empty() ? Reason::notACertificate : Reason::unsupportedAlgorithm;
}

Cases shapes() {
    Cases cases;
    for (const CertificateShape& shape : certificateShapes()) {
        cases.push_back(
            {"shape-" + shape.name, reasonOf(shape),
             [shape](const Authority& ca, const Authority&) { return shape.file(ca); }});
    }
    return cases;
}

Cases issuers() {
    return {
        stranger("stranger", {}),
        stranger("stranger-without-authority-identifier", authorityBy(AuthorityIdentifier::none)),
        stranger("stranger-by-name-and-serial", authorityBy(AuthorityIdentifier::keyNameAndSerial)),
        stranger("expired-stranger",
                 [] {
                     CertificatePlan plan;
                     plan.notAfter = "210101000000Z";
                     return plan;
                 }()),
        {"stranger-authority", Reason::noTrustedIssuer,
         [](const Authority&, const Authority& ca) { return ca.certificate(); }},
        {"trusted-authority", Reason::none,
         [](const Authority& ca, const Authority&) { return ca.certificate(); }},
        {"issued-by-a-leaf", Reason::noTrustedIssuer,
         [](const Authority& ca, const Authority&) {
             CertificatePlan middle;
             middle.subject = {{"CN", "Middle"}};
             middle.keyIdentifier = KeyIdentifier::hashOfKey;
             return ca.intermediate(middle).issue({});
         }},
    };
}

Cases damages() {
    return {
        changed("changed-serial-number", Reason::badSignature,
                [](Bytes& der) { found(der, serialNumber, false)[3] ^= 1U; }),
        changed("changed-validity", Reason::badSignature,
                [](Bytes& der) { found(der, validFrom, false)[1] = '1'; }),
        changed("changed-signature", Reason::badSignature, [](Bytes& der) { der.back() ^= 1U; }),
        changed("blank-signature", Reason::badSignature, blankSignature),
        {"changed-without-authority-identifier", Reason::badSignature,
         [](const Authority& ca, const Authority&) {
             Bytes der = ca.issue(authorityBy(AuthorityIdentifier::none));
             found(der, serialNumber, false)[3] ^= 1U;
             return der;
         }},
        {"changed-authority", Reason::badSignature,
         [](const Authority& ca, const Authority&) {
             Bytes der = ca.certificate();
             der.back() ^= 1U;
             return der;
         }},
        {"changed-stranger-authority", Reason::badSignature,
         [](const Authority&, const Authority& ca) {
             Bytes der = ca.certificate();
             der.back() ^= 1U;
             return der;
         }},
        changed("cut-in-the-middle", Reason::notACertificate,
                [](Bytes& der) { der.resize(der.size() / 2); }),
        changed("changed-outer-tag", Reason::notACertificate, [](Bytes& der) { der[0] = 0x31; }),
        changed("day-that-is-none", Reason::notACertificate,
                [](Bytes& der) { found(der, validFrom, false)[4] = '4'; }),
    };
}

Cases algorithms() {
    return {
        trusted("sha1", Reason::none, hashed("SHA1")),
        trusted("sha224", Reason::none, hashed("SHA224")),
        trusted("sha384", Reason::none, hashed("SHA384")),
        trusted("sha512", Reason::none, hashed("SHA512")),
        trusted("p192-key", Reason::none, withKey(KeyKind::p192)),
        trusted("p224-key", Reason::unsupportedAlgorithm, withKey(KeyKind::p224)),
        trusted("secp256k1-key", Reason::unsupportedAlgorithm, withKey(KeyKind::secp256k1)),
        // Each would be ecdsa-with-SHA1, were it not for a byte too many.
        renamed("padded-algorithm", {0x2a, 0x86, 0x48, 0xce, 0x3d, 0x04, 0x80, 0x01}),
        renamed("unfinished-algorithm", {0x2a, 0x86, 0x48, 0xce, 0x3d, 0x04, 0x01, 0x81}),
        {"p521-key-of-a-stranger", Reason::unsupportedAlgorithm,
         [](const Authority&, const Authority& ca) { return ca.issue(withKey(KeyKind::p521)); }},
        trusted("digital-signature", Reason::none, withUsage(7, 0x80)),
        trusted("key-encipherment-only", Reason::none, withUsage(5, 0x20)),
        trusted("signs-certificates", Reason::none, withUsage(2, 0x04)),
    };
}

CertificateCase filled(std::string name, Reason reason, std::size_t size) {
    return changed(std::move(name), reason, [size](Bytes& der) { der.resize(size); });
}

Cases files() {
    return {
        content("empty", Reason::emptyFile, {}),
        content("one-byte", Reason::notACertificate, {0x30}),
        content("text", Reason::notACertificate, bytesOf("no certificate at all\n")),
        content("pem-of-another-kind", Reason::notACertificate,
                bytesOf(toPem({0x30, 0x00}, "PRIVATE KEY"))),
        content("pem-of-nothing", Reason::notACertificate,
                bytesOf("-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n")),
        {"pem-with-a-stranger-behind", Reason::none,
         [](const Authority& ca, const Authority& other) {
             return bytesOf(toPem(ca.issue({})) + toPem(other.issue({})));
         }},
        {"pem-with-a-stranger-first", Reason::noTrustedIssuer,
         [](const Authority& ca, const Authority& other) {
             return bytesOf(toPem(other.issue({})) + toPem(ca.issue({})));
         }},
        filled("longest", Reason::none, mostOfACertificate),
        filled("too-long", Reason::tooLong, mostOfACertificate + 1),
        filled("largest", Reason::tooLong, mostOfAKey),
        filled("too-large", Reason::tooLarge, mostOfAKey + 1),
    };
}

} // namespace

std::vector<CertificateCase> certificateCases() {
    Cases all;
    for (Cases group : {shapes(), issuers(), damages(), algorithms(), files()}) {
        std::move(group.begin(), group.end(), std::back_inserter(all));
    }
    return all;
}

} // namespace Vestrel::Tests
