// SPDX-License-Identifier: Apache-2.0
// vestrelctl install: puts certificates into a keyring's directory and waits for their keys.
#include "ctl/AgentRecord.h"
#include "ctl/DiagnosisRow.h"
#include "ctl/DirectoryFile.h"
#include "ctl/Keyrings.h"
#include "ctl/Verbs.h"
#include "ctl/Wait.h"
#include "keymodel/CertificateDescription.h"
#include "keymodel/CertificateFile.h"
#include "keymodel/IntegrityConstants.h"
#include "keymodel/TemporarySuffix.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace Vestrel {

namespace {

namespace fs = std::filesystem;

struct Options {
    std::string keyring;
    std::vector<std::string> files;
    std::vector<std::string> issuers;
    double wait = 0;
};

// One file on its way into the directory.
struct Installation {
    FileContent file;
    Diagnosis diagnosis;
    std::string path; // in the directory
    std::string outcome;
    std::string problem;               // empty: there is none
    std::vector<key_serial_t> earlier; // keys of its description before it was there
    ExitStatus status = ExitStatus::done;
};

void isNot(Installation& installation, ExitStatus status, std::string problem) {
    installation.outcome = "not-installed";
    installation.problem = std::move(problem);
    installation.status = status;
}

// A file renamed over one with another key would leave that key in its keyring.
bool carriesAnotherKey(const Installation& installation) {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(installation.path, error))) {
        return false;
    }
    const auto der = readCertificateFile(installation.path.c_str());
    return !der || certificateDescription(*der) != installation.diagnosis.description;
}

// Everything that speaks against it, before anything is written.
bool mayBeInstalled(Installation& installation) {
    const Finding& finding = installation.diagnosis.finding;
    if (finding.verdict == Verdict::refused) {
        isNot(installation, statusOf(installation.diagnosis), finding.explanation);
    } else if (installation.path.ends_with(temporarySuffix)) {
        isNot(installation, ExitStatus::failed, "the agent ignores files of such a name");
    } else if (isSameEntry(installation.file.path, installation.path)) {
        isNot(installation, ExitStatus::failed, "it is in the directory already");
    } else if (carriesAnotherKey(installation)) {
        isNot(installation, ExitStatus::failed,
              installation.path + " carries another key: remove it first");
    }
    return installation.outcome.empty();
}

Installation prepared(const std::string& path, const Options& options, const Surroundings& known) {
    Installation installation{.file = fileContent(path),
                              .diagnosis = {},
                              .path = {},
                              .outcome = {},
                              .problem = {},
                              .earlier = {}};
    installation.diagnosis = diagnose(installation.file, options.keyring, known);
    installation.path =
        std::string(IntegrityConstants().keyringPathPrefix(options.keyring).view()) + "/" +
        fs::path(path).filename().string();
    return installation;
}

void write(Installation& installation, const std::string& keyring) {
    installation.earlier = keysOf(keyring, installation.diagnosis.description);
    try {
        fileIs(installation.path, installation.file.bytes);
    } catch (const std::system_error& failure) {
        isNot(installation, ExitStatus::failed, failure.what());
    }
}

// The same certificate loaded again has a key of another serial.
bool isNew(key_serial_t key, const Installation& installation) {
    return std::ranges::find(installation.earlier, key) == installation.earlier.end();
}

bool isLoaded(const Installation& installation, const std::string& keyring) {
    const auto keys = keysOf(keyring, installation.diagnosis.description);
    return std::ranges::any_of(keys, [&](auto key) { return isNew(key, installation); });
}

std::string whyNoKeyCame(const FileRecord& record, const Finding& finding) {
    if (!record.noAgent().empty()) {
        return record.noAgent() + "; the file is in place, but nothing loads it until one runs";
    }
    if (record.refusal().empty()) {
        return "no key of it came in time" +
               (record.silence().empty() ? "" : "; " + record.silence());
    }
    const std::string doubt =
        finding.verdict == Verdict::unknown ? "; check could not know: " + finding.explanation : "";
    return "the agent says that it was refused: " + record.refusal() + doubt;
}

void awaitKey(Installation& installation, const Options& options, FileRecord& record) {
    const auto isOver = [&] {
        record.update(); // first, so that the last deed of an agent that ends is seen
        if (isLoaded(installation, options.keyring)) {
            installation.outcome = "loaded";
        }
        return !installation.outcome.empty() || !record.noAgent().empty() ||
               !record.refusal().empty();
    };
    holdsWithin(options.wait, isOver);
    if (installation.outcome.empty()) {
        installation.outcome = "not-loaded";
        installation.status = ExitStatus::late;
        installation.problem = whyNoKeyCame(record, installation.diagnosis.finding);
    }
}

void writeAndAwait(Installation& installation, const Options& options) {
    FileRecord record(options.keyring, installation.path); // as it is before the file is there
    write(installation, options.keyring);
    if (installation.outcome.empty()) {
        awaitKey(installation, options, record);
    }
}

void carriedOut(Installation& installation, const Options& options) {
    if (!mayBeInstalled(installation)) {
        return;
    }
    if (options.wait != 0) {
        writeAndAwait(installation, options);
        return;
    }
    write(installation, options.keyring);
    if (installation.outcome.empty()) {
        installation.outcome = "written";
    }
}

Json rowOf(const Installation& installation, const std::string& keyring) {
    Json row{{"file", installation.file.path},
             {"path", installation.path},
             {"outcome", installation.outcome},
             {"problem", installation.problem}};
    row["check"] = rowOf(installation.file, keyring, installation.diagnosis);
    return row;
}

std::string installationLine(const Json& row) {
    const auto text = [&](const char* member) { return row.at(member).get<std::string>(); };
    std::string line = text("file") + ": " + text("outcome");
    if (!text("problem").empty()) {
        return line + ": " + text("problem");
    }
    return line + " as \"" + row.at("check").at("description").get<std::string>() + "\", from " +
           text("path");
}

ExitStatus install(const Options& options, Output& output) {
    ExitStatus status = ExitStatus::done;
    Json rows = Json::array();
    for (const std::string& path : options.files) {
        // Anew for each, since the one before may be its issuer.
        Installation installation = prepared(path, options, surroundings(options.issuers));
        carriedOut(installation, options);
        status = worse(status, installation.status);
        rows.push_back(rowOf(installation, options.keyring));
    }
    output.lines("install", rows, installationLine);
    return status;
}

} // namespace

void addInstall(CLI::App& app, Action& chosen) {
    CLI::App* const verb = app.add_subcommand(
        "install", "Put certificates into a keyring's directory and wait for their keys");
    const auto options = std::make_shared<Options>();
    addKeyring(*verb, options->keyring);
    verb->add_option("FILE", options->files, "A certificate in DER or PEM")->required();
    addIssuers(*verb, options->issuers);
    addWait(*verb, options->wait);
    verb->callback([options, &chosen] {
        chosen = [options](Output& output) { return install(*options, output); };
    });
}

} // namespace Vestrel
