// SPDX-License-Identifier: Apache-2.0
// Validity and usage of a certificate, which the kernel ignores.
#include "diagnosis/Remarks.h"

#include "keymodel/BerReader.h"

#include <array>

namespace Vestrel {

namespace {

constexpr unsigned digitalSignature = 0x80;
constexpr unsigned keyCertSign = 0x04;

// As "YYYYMMDDhhmmss", which sorts by time.
std::string sortable(const BerElement& time) {
    std::string digits(time.content.begin(), time.content.end() - 1);
    if (time.tag != Ber::utcTime) {
        return digits;
    }
    return (digits[0] >= '5' ? "19" : "20") + digits;
}

std::string sortable(std::time_t time) {
    std::tm parts{};
    std::array<char, sizeof "99999MMDDhhmmss"> text{};
    gmtime_r(&time, &parts);
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &parts);
    return {text.data(), size};
}

std::string dayOf(const std::string& sortableTime) {
    return sortableTime.substr(0, 4) + "-" + sortableTime.substr(4, 2) + "-" +
           sortableTime.substr(6, 2);
}

// The first byte of the flags; none are set where the extension is not there.
unsigned keyUsage(const CertificateFields& certificate) {
    BerReader reader(certificate.keyUsage.value_or(ByteSpan()));
    BerElement bits;
    return reader.take(Ber::bitString, bits) && bits.content.size() > 1 ? bits.content[1] : 0;
}

bool isAuthority(const CertificateFields& certificate) {
    BerReader reader(certificate.basicConstraints.value_or(ByteSpan()));
    BerReader inside;
    BerElement flag;
    return reader.enter(Ber::sequence, inside) && inside.take(Ber::boolean, flag) &&
           flag.content.size() == 1 && flag.content[0] != 0;
}

} // namespace

bool isForSigningOnly(const CertificateFields& certificate) {
    const unsigned usage = keyUsage(certificate);
    return (usage & digitalSignature) != 0 && (usage & keyCertSign) == 0 &&
           !isAuthority(certificate);
}

std::vector<std::string> remarks(const CertificateFields& certificate, std::time_t now,
                                 bool isUsageIgnored) {
    std::vector<std::string> remarks;
    const std::string today = sortable(now);
    if (const std::string end = sortable(certificate.notAfter); end < today) {
        remarks.push_back("it expired on " + dayOf(end) + ", which the kernel ignores");
    }
    if (const std::string begin = sortable(certificate.notBefore); begin > today) {
        remarks.push_back("it is valid from " + dayOf(begin) + ", which the kernel ignores");
    }
    const std::string ignored = isUsageIgnored ? ", which the kernel ignores" : "";
    if (isAuthority(certificate) || (keyUsage(certificate) & keyCertSign) != 0) {
        remarks.push_back("it is an authority's certificate, not one for signing files" + ignored);
    } else if ((keyUsage(certificate) & digitalSignature) == 0) {
        remarks.push_back("its key usage does not include digital signature" + ignored);
    }
    return remarks;
}

} // namespace Vestrel
