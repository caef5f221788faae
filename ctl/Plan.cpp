// SPDX-License-Identifier: Apache-2.0
// vestrelctl plan: what a start of the agent would load, map and leave, without doing it.
#include "ctl/DiagnosisRow.h"
#include "ctl/Keyrings.h"
#include "ctl/Verbs.h"
#include "keyring/IntegrityKeyringSm.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Vestrel {

namespace {

struct Options {
    std::vector<std::string> issuers;
};

// What the agent has on record of a key.
std::string onRecord(const std::string& description) {
    return description.substr(0, description.find(';'));
}

class Planning {
public:
    explicit Planning(const Surroundings& known) : known_(known) {}

    void keyring(const KeyringView& keyring) {
        std::set<std::string> existing;
        std::ranges::transform(keyring.keys, std::inserter(existing, existing.end()), onRecord);
        std::set<std::string> carried;
        for (const std::string& path : directoryFiles(keyring.name)) {
            carried.insert(file(keyring, path, existing));
        }
        for (const std::string& key : keyring.keys) {
            if (!carried.contains(onRecord(key))) {
                row(keyring.name, "keep", "", key, "no file carries it; a start unlinks no key");
            }
        }
    }

    const Json& rows() const { return rows_; }

    ExitStatus status() const { return status_; }

private:
    // Returns the description that the file carries.
    std::string file(const KeyringView& keyring, const std::string& path,
                     const std::set<std::string>& existing) {
        const FileContent content = fileContent(path);
        const Diagnosis diagnosis = diagnose(content, keyring.name, known_);
        if (diagnosis.description.empty()) {
            row(keyring.name, "skip", path, "", diagnosis.finding.explanation);
        } else if (existing.contains(diagnosis.description)) {
            row(keyring.name, "map", path, diagnosis.description, "its key is in the keyring");
        } else {
            loading(keyring.name, path, diagnosis);
        }
        return diagnosis.description;
    }

    void loading(const std::string& keyring, const std::string& path, const Diagnosis& diagnosis) {
        row(keyring, diagnosis.finding.verdict == Verdict::refused ? "refuse" : "load", path,
            diagnosis.description, diagnosis.finding.explanation);
        status_ = worse(status_, statusOf(diagnosis));
    }

    void row(const std::string& keyring, const char* action, const std::string& path,
             const std::string& description, const std::string& why) {
        rows_.push_back({{"keyring", keyring},
                         {"action", action},
                         {"file", path},
                         {"description", description},
                         {"explanation", why}});
    }

    const Surroundings& known_;
    Json rows_ = Json::array();
    ExitStatus status_ = ExitStatus::done;
};

ExitStatus plan(const Options& options, Output& output) {
    const Surroundings known = surroundings(options.issuers);
    Planning planning(known);
    for (const KeyringView& keyring : known.kernel.keyrings) {
        planning.keyring(keyring);
    }
    output.table("plan",
                 {{"keyring", "KEYRING"},
                  {"action", "ACTION"},
                  {"file", "FILE"},
                  {"description", "KEY"},
                  {"explanation", "WHY"}},
                 planning.rows());
    return planning.status();
}

} // namespace

void addPlan(CLI::App& app, Action& chosen) {
    CLI::App* const verb = app.add_subcommand(
        "plan", "Show what a start of the agent would load, map and leave, without doing it");
    const auto options = std::make_shared<Options>();
    addIssuers(*verb, options->issuers);
    verb->callback([options, &chosen] {
        chosen = [options](Output& output) { return plan(*options, output); };
    });
}

} // namespace Vestrel
