// SPDX-License-Identifier: Apache-2.0
// Whether the kernel will take a certificate into a keyring, and if not, why.
#pragma once

#include "diagnosis/CertificateStock.h"
#include "diagnosis/KernelView.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vestrel {

enum class Verdict { accepted, refused, unknown };

enum class Reason {
    none, // accepted

    unreadableFile,
    emptyFile,
    tooLarge, // of 1 MiB or more: no key may be so large
    tooLong,  // of 64 KiB or more: no certificate may be so long
    notACertificate,
    unsupportedAlgorithm,
    noTrustedIssuer,
    badSignature,
    blacklisted,
    protectedKeyring, // only the kernel itself fills it
    missingKeyring,

    // These make the verdict unknown.
    invisibleKeyring,      // to this user
    unverifiableSignature, // the issuer is, or may be, trusted; its certificate is not at hand
    unknownRule,           // what this kernel does in such a case
};

// Short and fixed, for programs: "no-trusted-issuer".
std::string_view nameOf(Reason reason);
// "accepted", "refused", "unknown".
std::string_view nameOf(Verdict verdict);

// The errors with which the kernel, or the agent's reading of the file, refuses for this reason.
std::vector<int> errorsOf(Reason reason);

struct Finding {
    Verdict verdict = Verdict::accepted;
    Reason reason = Reason::none;
    std::string explanation; // a sentence without its full stop
};

inline Finding refused(Reason reason, std::string explanation) {
    return {Verdict::refused, reason, std::move(explanation)};
}

inline Finding unknown(Reason reason, std::string explanation) {
    return {Verdict::unknown, reason, std::move(explanation)};
}

struct Diagnosis {
    Finding finding;
    std::string description;            // that the key will carry; empty: not a certificate
    std::string issuer;                 // its name, as in the description of its key
    std::string issuerKeyIdentifier;    // in the same writing; empty: not given
    std::vector<std::string> trusted;   // keyrings in which the issuer's key has to be
    std::vector<std::string> carriedBy; // other files of the keyring's directory
    bool isInKeyring = false;           // a key of this description
    std::vector<std::string> remarks;   // sentences; none of them makes the kernel refuse
};

// A file as it was read, so that what is judged can be what is written elsewhere.
struct FileContent {
    std::string path;
    std::vector<std::uint8_t> bytes;
    int error = 0; // why it could not be read
};

FileContent fileContent(const std::string& path);

// What a diagnosis is made from.
struct Surroundings {
    KernelView kernel;
    CertificateStock stock;
    std::time_t now = 0;
};

// The rules are those of kernel 6.1. Where another kernel may decide differently, or where the
// kernel does not show what it decides by, the verdict is unknown. A file in the stock with the
// description of a key is taken to be that key's certificate: the kernel gives out no public keys.
// Throws only when memory runs out.
Diagnosis diagnose(const FileContent& file, const std::string& keyring,
                   const Surroundings& surroundings);

} // namespace Vestrel
