// SPDX-License-Identifier: Apache-2.0
// The kernel's steps from a file to a key, each of which may end in a finding.
#include "diagnosis/Diagnosis.h"

#include "diagnosis/Examination.h"
#include "diagnosis/Remarks.h"
#include "keymodel/CertificateDescription.h"
#include "keymodel/CertificateFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>

namespace Vestrel {

namespace {

using MaybeFinding = std::optional<Finding>;

MaybeFinding fileFinding(const FileContent& file) {
    std::error_code error;
    switch (file.error) {
    case 0:
        return std::nullopt;
    case EFBIG:
        return refused(Reason::tooLarge, "the file has 1 MiB or more");
    case EINVAL:
        return std::filesystem::is_regular_file(file.path, error)
                   ? refused(Reason::emptyFile, "the file is empty")
                   : refused(Reason::unreadableFile, "not a regular file");
    default:
        return refused(Reason::unreadableFile,
                       std::string("it cannot be read: ") + std::strerror(file.error));
    }
}

MaybeFinding keyringFinding(const std::string& name, const KernelView& kernel) {
    const KeyringView* const keyring = kernel.keyring(name);
    if (keyring == nullptr) {
        return unknown(Reason::unknownRule, "the rules of " + name + " are not known");
    }
    if (keyring->error != 0 && !kernel.isRoot) {
        return unknown(Reason::invisibleKeyring, "only root can see " + name);
    }
    if (keyring->error == ENOKEY) {
        return refused(Reason::missingKeyring, "this kernel has no keyring " + name);
    }
    if (keyring->error != 0) {
        return unknown(Reason::invisibleKeyring,
                       name + " cannot be read: " + std::strerror(keyring->error));
    }
    if (!keyring->isWritable) {
        return kernel.isRoot
                   ? refused(Reason::protectedKeyring, "only the kernel itself fills " + name)
                   : unknown(Reason::invisibleKeyring, "only root may write to " + name);
    }
    return std::nullopt;
}

// The size that the outermost element of a certificate claims; 0 where none of two bytes stands.
std::size_t claimedSize(const std::vector<std::uint8_t>& der) {
    constexpr std::size_t headerSize = 4;
    return der.size() >= headerSize && der[0] == Ber::sequence && der[1] == 0x82
               ? headerSize + (std::size_t{der[2]} << 8U) + der[3]
               : 0;
}

Finding notACertificate(const std::vector<std::uint8_t>& der) {
    std::string why = "not a certificate that the kernel can read";
    if (std::ranges::equal(std::string_view("-----BEGIN "),
                           std::span(der).first(std::min<std::size_t>(der.size(), 11)))) {
        why = "PEM without a readable CERTIFICATE block";
    } else if (const std::size_t claimed = claimedSize(der); claimed > der.size()) {
        why = "cut short: it has " + std::to_string(der.size()) + " of " + std::to_string(claimed) +
              " bytes";
    }
    return refused(Reason::notACertificate, why);
}

void descriptionNoted(const FileContent& file, const std::string& keyring,
                      const Surroundings& surroundings, Diagnosis& diagnosis) {
    diagnosis.carriedBy = surroundings.stock.carriers(keyring, diagnosis.description, file.path);
    if (const KeyringView* const view = surroundings.kernel.keyring(keyring); view != nullptr) {
        diagnosis.isInKeyring =
            std::ranges::find(view->keys, diagnosis.description) != view->keys.end();
    }
}

} // namespace

FileContent fileContent(const std::string& path) {
    auto bytes = readFileContent(path.c_str());
    return bytes ? FileContent{path, *std::move(bytes), 0} : FileContent{path, {}, errno};
}

Diagnosis diagnose(const FileContent& file, const std::string& keyring,
                   const Surroundings& surroundings) {
    Diagnosis diagnosis;
    const auto der = derOf(file.bytes);
    const auto certificate = readCertificate(der);
    if (certificate) {
        const Examination examination(*certificate, keyring, surroundings);
        diagnosis.finding = examination.finding();
        diagnosis.description = certificateDescription(der);
        diagnosis.issuer = keyName(certificate->issuer.parts);
        diagnosis.issuerKeyIdentifier =
            hexOf(certificate->authority.keyIdentifier.value_or(ByteSpan()));
        diagnosis.trusted = examination.trusted();
        diagnosis.remarks = remarks(*certificate, surroundings.now, examination.isUsageIgnored());
        descriptionNoted(file, keyring, surroundings, diagnosis);
    } else {
        diagnosis.finding = der.size() > maxCertificateSize
                                ? refused(Reason::tooLong, "a certificate has 65,535 bytes at most")
                                : notACertificate(der);
    }
    // What the kernel looks at first.
    if (auto earlier = fileFinding(file)) {
        diagnosis.finding = *std::move(earlier);
    } else if (auto closed = keyringFinding(keyring, surroundings.kernel);
               closed && (closed->verdict == Verdict::refused ||
                          diagnosis.finding.verdict != Verdict::refused)) {
        diagnosis.finding = *std::move(closed);
    }
    return diagnosis;
}

} // namespace Vestrel
