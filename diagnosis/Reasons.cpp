// SPDX-License-Identifier: Apache-2.0
// Names of verdicts and reasons, and the errors that belong to them.
#include "diagnosis/Diagnosis.h"

#include <cerrno>

namespace Vestrel {

std::string_view nameOf(Verdict verdict) {
    switch (verdict) {
    case Verdict::accepted:
        return "accepted";
    case Verdict::refused:
        return "refused";
    case Verdict::unknown:
        break;
    }
    return "unknown";
}

std::string_view nameOf(Reason reason) {
    switch (reason) {
    case Reason::none:
        return "none";
    case Reason::unreadableFile:
        return "unreadable-file";
    case Reason::emptyFile:
        return "empty-file";
    case Reason::tooLarge:
        return "too-large";
    case Reason::tooLong:
        return "too-long";
    case Reason::notACertificate:
        return "not-a-certificate";
    case Reason::unsupportedAlgorithm:
        return "unsupported-algorithm";
    case Reason::noTrustedIssuer:
        return "no-trusted-issuer";
    case Reason::badSignature:
        return "bad-signature";
    case Reason::blacklisted:
        return "blacklisted";
    case Reason::protectedKeyring:
        return "protected-keyring";
    case Reason::missingKeyring:
        return "missing-keyring";
    case Reason::invisibleKeyring:
        return "invisible-keyring";
    case Reason::unverifiableSignature:
        return "unverifiable-signature";
    case Reason::unknownRule:
        break;
    }
    return "unknown-rule";
}

std::vector<int> errorsOf(Reason reason) {
    switch (reason) {
    case Reason::emptyFile:
        return {EINVAL};
    case Reason::tooLarge:
        return {EFBIG};
    case Reason::tooLong:
        return {EMSGSIZE};
    case Reason::notACertificate:
        return {EBADMSG, EINVAL}; // the latter when it names two signature algorithms
    case Reason::unsupportedAlgorithm:
        return {ENOPKG};
    case Reason::noTrustedIssuer:
    case Reason::missingKeyring:
        return {ENOKEY};
    case Reason::badSignature:
        return {EKEYREJECTED, EINVAL, EBADMSG}; // by what the damage makes of it
    case Reason::blacklisted:
        return {EKEYREJECTED};
    case Reason::protectedKeyring:
        return {EACCES};
    default:
        return {};
    }
}

} // namespace Vestrel
