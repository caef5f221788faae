// SPDX-License-Identifier: Apache-2.0
// The certificates of the scenarios, sound and damaged.
#include "tests/scenario/Contents.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace Vestrel::Tests {

namespace {

constexpr std::size_t moreThanAKey = 70000;
constexpr std::size_t moreThanAPayload = 1024UL * 1024;

CertificatePlan planOf(const std::string& commonName, std::uint8_t serialNumber) {
    CertificatePlan plan;
    plan.subject = {{"CN", commonName}};
    plan.serialNumber = {serialNumber};
    return plan;
}

Bytes issued(const CertificateAuthority& authority, const std::string& commonName,
             std::uint8_t serialNumber = 1) {
    return authority.issue(planOf(commonName, serialNumber));
}

std::string described(const std::string& commonName) {
    return commonName + ": a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3";
}

// Another end of the validity: everything can be read, and the signature is wrong.
Bytes tampered(Bytes certificate) {
    constexpr std::string_view end = "491231235959Z";
    const auto found = std::search(certificate.begin(), certificate.end(), end.begin(), end.end());
    found[1] = '8';
    return certificate;
}

} // namespace

Contents::Contents(const CertificateAuthority& trusted, const CertificateAuthority& unknown,
                   const std::string& trustedDescription) {
    const Bytes alpha = issued(trusted, "alpha");
    put("alpha", alpha, described("alpha"));
    put("beta", issued(trusted, "beta"), described("beta"));
    put("gamma", issued(trusted, "gamma"), described("gamma"));
    put("twin-1", issued(trusted, "twin", 1), described("twin"));
    put("twin-2", issued(trusted, "twin", 2), described("twin"));
    // On record these are one description, in the kernel they are two.
    put("cut-1", issued(trusted, "cut;one"), described("cut;one"));
    put("cut-2", issued(trusted, "cut;two"), described("cut;two"));
    put("cut-away", issued(trusted, ";all"), described(";all"));
    put("root", trusted.certificate(), trustedDescription);
    put("alpha-pem", bytesOf(toPem(alpha)), described("alpha"));
    contents_["alpha-pem"].payload = alpha;
    put("stranger", issued(unknown, "stranger"), described("stranger"), ENOKEY);
    put("stranger-alpha", issued(unknown, "alpha"), described("alpha"), ENOKEY);
    put("tampered-beta", tampered(issued(trusted, "beta")), described("beta"), EKEYREJECTED);
    put("garbage", bytesOf("not a certificate"), "", EBADMSG);
    put("half", Bytes(alpha.begin(), alpha.begin() + static_cast<long>(alpha.size() / 2)), "",
        EBADMSG);
    put("large", Bytes(moreThanAKey, 0x55), "", EMSGSIZE);
    put("empty", {}, "", EINVAL);
    put("huge", Bytes(moreThanAPayload, 0x55), "", EFBIG);
    contents_["empty"].isHandedOver = false;
    contents_["huge"].isHandedOver = false;
}

void Contents::put(const std::string& name, const Bytes& bytes, const std::string& description,
                   int refusal) {
    contents_[name] = {name, bytes, bytes, description, refusal, true};
}

const Content* Contents::ofPayload(const Bytes& payload) const {
    const auto found = std::ranges::find_if(contents_, [&](const auto& content) {
        return content.second.isHandedOver && content.second.payload == payload;
    });
    return found == contents_.end() ? nullptr : &found->second;
}

const std::vector<std::string>& Contents::names() {
    static const std::vector<std::string> names{
        "alpha",    "beta", "gamma",     "twin-1",   "twin-2",         "cut-1",
        "cut-2",    "root", "alpha-pem", "stranger", "stranger-alpha", "tampered-beta",
        "cut-away", "half", "garbage",   "large",    "empty",          "huge"};
    return names;
}

const std::vector<std::string>& Contents::heldNames() {
    static const std::vector<std::string> names{"alpha", "twin-1", "cut-1", "cut-2", "cut-away"};
    return names;
}

} // namespace Vestrel::Tests
