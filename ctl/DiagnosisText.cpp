// SPDX-License-Identifier: Apache-2.0
// The words for a diagnosis.
#include "ctl/DiagnosisText.h"

#include <cstring>

namespace Vestrel {

namespace {

// What the agent's message says when the kernel refuses for that reason.
Json errorTexts(const FileContent& file, Reason reason) {
    Json texts = Json::array();
    for (const int error : errorsOf(reason)) {
        texts.push_back(std::strerror(error));
    }
    if (reason == Reason::unreadableFile) {
        texts.push_back(std::strerror(file.error));
    }
    return texts;
}

std::string quoted(const Json& texts) {
    std::string all;
    for (const Json& text : texts) {
        all += (all.empty() ? ", \"" : " or \"") + text.get<std::string>() + "\"";
    }
    return all;
}

} // namespace

Json rowOf(const FileContent& file, const std::string& keyring, const Diagnosis& diagnosis) {
    return {{"file", file.path},
            {"keyring", keyring},
            {"verdict", nameOf(diagnosis.finding.verdict)},
            {"reason", nameOf(diagnosis.finding.reason)},
            {"explanation", diagnosis.finding.explanation},
            {"errors", errorTexts(file, diagnosis.finding.reason)},
            {"description", diagnosis.description},
            {"issuer", diagnosis.issuer},
            {"issuerKeyIdentifier", diagnosis.issuerKeyIdentifier},
            {"trustedKeyrings", diagnosis.trusted},
            {"inKeyring", diagnosis.isInKeyring},
            {"carriedBy", diagnosis.carriedBy},
            {"remarks", diagnosis.remarks}};
}

std::string lineOf(const Json& row) {
    const auto text = [&](const char* member) { return row.at(member).get<std::string>(); };
    std::string line = text("file") + ": " + text("verdict");
    if (text("reason") != nameOf(Reason::none)) {
        line += " (" + text("reason") + quoted(row.at("errors")) + ")";
    } else {
        line += " as \"" + text("description") + "\"";
    }
    line += ": " + text("explanation");
    if (text("verdict") == nameOf(Verdict::unknown) && !text("description").empty()) {
        line += "; the description of its key: \"" + text("description") + "\"";
    }
    if (row.at("inKeyring").get<bool>()) {
        line += "; a key of its description is in " + text("keyring") + " already";
    }
    for (const Json& path : row.at("carriedBy")) {
        line += "; " + path.get<std::string>() + " carries the same key";
    }
    for (const Json& remark : row.at("remarks")) {
        line += "; " + remark.get<std::string>();
    }
    return line;
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
