// SPDX-License-Identifier: Apache-2.0
// vestrelctl check: whether the kernel will take certificates, and if not, why.
#include "ctl/DiagnosisRow.h"
#include "ctl/Keyrings.h"
#include "ctl/Verbs.h"
#include "diagnosis/DiagnosisText.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Vestrel {

namespace {

struct Options {
    std::string keyring;
    std::vector<std::string> files;
    std::vector<std::string> issuers;
};

ExitStatus check(const Options& options, Output& output) {
    const Surroundings known = surroundings(options.issuers);
    ExitStatus status = ExitStatus::done;
    Json rows = Json::array();
    std::vector<std::string> lines;
    for (const std::string& path : options.files) {
        const FileContent file = fileContent(path);
        const Diagnosis diagnosis = diagnose(file, options.keyring, known);
        rows.push_back(rowOf(file, options.keyring, diagnosis));
        lines.push_back(path + ": " + textOf(diagnosis, file, options.keyring));
        status = worse(status, statusOf(diagnosis));
    }
    output.lines("check", rows, lines);
    return status;
}

} // namespace

void addCheck(CLI::App& app, Action& chosen) {
    CLI::App* const verb =
        app.add_subcommand("check", "Say whether the kernel will take certificates, and why not");
    const auto options = std::make_shared<Options>();
    addKeyring(*verb, options->keyring);
    verb->add_option("FILE", options->files, "A certificate in DER or PEM")->required();
    addIssuers(*verb, options->issuers);
    verb->callback([options, &chosen] {
        chosen = [options](Output& output) { return check(*options, output); };
    });
}

} // namespace Vestrel
