// SPDX-License-Identifier: Apache-2.0
// The kernel's rule for making a key's description from a certificate's fields.
#include "keymodel/CertificateDescription.h"

#include "keymodel/CertificateFields.h"

#include <algorithm>
#include <string_view>

namespace Vestrel {

namespace {

constexpr std::size_t significantPrefix = 7;
constexpr std::string_view separator = ": ";

void append(std::string& text, ByteSpan bytes) {
    text.append(bytes.begin(), bytes.end());
}

bool startsWith(ByteSpan bytes, ByteSpan prefix) {
    return bytes.size() >= prefix.size() && std::ranges::equal(bytes.first(prefix.size()), prefix);
}

// Whether the common name says the organization, or a significant portion of it, by itself.
bool namesOrganization(ByteSpan commonName, ByteSpan organization) {
    return startsWith(commonName, organization) ||
           (organization.size() >= significantPrefix &&
            startsWith(commonName, organization.first(significantPrefix)));
}

std::string nameOf(const NameParts& subject) {
    std::string name;
    if (subject.commonName.empty()) {
        append(name, subject.organization.empty() ? subject.email : subject.organization);
        return name;
    }
    if (!namesOrganization(subject.commonName, subject.organization)) {
        append(name, subject.organization);
        name += separator;
    }
    append(name, subject.commonName);
    return name;
}

} // namespace

std::string hexOf(ByteSpan bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 0xfU];
    }
    return text;
}

std::string keyName(const NameParts& subject) {
    std::string name = nameOf(subject);
    name.resize(std::min(name.find('\0'), name.size()));
    return name;
}

std::string certificateDescription(std::span<const std::uint8_t> der) {
    const std::optional<CertificateFields> fields = readCertificate(der);
    if (!fields) {
        return {};
    }
    std::string description = keyName(fields->subject.parts);
    description += separator;
    description += hexOf(fields->subjectKeyIdentifier.value_or(fields->serialNumber));
    return description;
}

} // namespace Vestrel
