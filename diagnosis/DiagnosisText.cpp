// SPDX-License-Identifier: Apache-2.0
// The words for a diagnosis.
#include "diagnosis/DiagnosisText.h"

#include <cstring>

namespace Vestrel {

namespace {

// In parentheses, with the errors: several where it depends on what the kernel comes upon first.
std::string reasonText(const Finding& finding, const FileContent& file) {
    std::string text(nameOf(finding.reason));
    const char* separator = ", ";
    for (const std::string& error : errorTexts(file, finding)) {
        text += separator + ("\"" + error + "\"");
        separator = " or ";
    }
    return " (" + text + ")";
}

std::string findingText(const Diagnosis& diagnosis, const FileContent& file) {
    const Finding& finding = diagnosis.finding;
    return std::string(nameOf(finding.verdict)) +
           (finding.reason == Reason::none ? " as \"" + diagnosis.description + "\""
                                           : reasonText(finding, file)) +
           ": " + finding.explanation;
}

} // namespace

std::vector<std::string> errorTexts(const FileContent& file, const Finding& finding) {
    std::vector<std::string> texts;
    for (const int error : errorsOf(finding.reason)) {
        texts.emplace_back(std::strerror(error));
    }
    if (finding.reason == Reason::unreadableFile) {
        texts.emplace_back(std::strerror(file.error));
    }
    return texts;
}

std::string textOf(const Diagnosis& diagnosis, const FileContent& file,
                   const std::string& keyring) {
    std::string text = findingText(diagnosis, file);
    if (diagnosis.finding.verdict == Verdict::unknown && !diagnosis.description.empty()) {
        text += "; the description of its key: \"" + diagnosis.description + "\"";
    }
    if (diagnosis.isInKeyring) {
        text += "; a key of its description is in " + keyring + " already";
    }
    for (const std::string& path : diagnosis.carriedBy) {
        text += "; " + path + " carries the same key";
    }
    for (const std::string& remark : diagnosis.remarks) {
        text += "; " + remark;
    }
    return text;
}

} // namespace Vestrel
