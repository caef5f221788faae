// SPDX-License-Identifier: Apache-2.0
// The members of a row, and the status of a verdict.
#include "ctl/DiagnosisRow.h"

#include "diagnosis/DiagnosisText.h"

namespace Vestrel {

Json rowOf(const FileContent& file, const std::string& keyring, const Diagnosis& diagnosis) {
    return {{"file", file.path},
            {"keyring", keyring},
            {"verdict", nameOf(diagnosis.finding.verdict)},
            {"reason", nameOf(diagnosis.finding.reason)},
            {"explanation", diagnosis.finding.explanation},
            {"errors", errorTexts(file, diagnosis.finding)},
            {"description", diagnosis.description},
            {"issuer", diagnosis.issuer},
            {"issuerKeyIdentifier", diagnosis.issuerKeyIdentifier},
            {"trustedKeyrings", diagnosis.trusted},
            {"inKeyring", diagnosis.isInKeyring},
            {"carriedBy", diagnosis.carriedBy},
            {"remarks", diagnosis.remarks}};
}

ExitStatus statusOf(const Diagnosis& diagnosis) {
    if (diagnosis.finding.reason == Reason::unreadableFile) {
        return ExitStatus::failed;
    }
    switch (diagnosis.finding.verdict) {
    case Verdict::accepted:
        return ExitStatus::done;
    case Verdict::refused:
        return ExitStatus::refused;
    case Verdict::unknown:
        break;
    }
    return ExitStatus::unknown;
}

} // namespace Vestrel
