// SPDX-License-Identifier: Apache-2.0
// vestrelctl keys and vestrelctl files: which key came from which files, and the other way round.
#include "ctl/Keyrings.h"
#include "ctl/State.h"
#include "ctl/Verbs.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

namespace Vestrel {

namespace {

ExitStatus keys(const std::string& keyring, Output& output) {
    const State state;
    Json rows = Json::array();
    for (const KeyRow& key : state.keys(keyring)) {
        rows.push_back({{"keyring", key.keyring},
                        {"serial", key.serial},
                        {"description", key.description},
                        {"type", key.type},
                        {"files", key.files},
                        {"state", key.state}});
    }
    output.table("keys",
                 {{"keyring", "KEYRING"},
                  {"serial", "SERIAL"},
                  {"description", "KEY"},
                  {"state", "STATE"},
                  {"files", "FILES"}},
                 rows);
    complainWithoutAgent(state, output);
    return complainOfRights(state, keyring, output);
}

ExitStatus files(const std::string& keyring, Output& output) {
    const State state;
    Json rows = Json::array();
    for (const FileRow& file : state.files(keyring)) {
        rows.push_back({{"keyring", file.keyring},
                        {"file", file.path},
                        {"description", file.description},
                        {"key", file.key == 0 ? Json() : Json(file.key)},
                        {"state", file.state},
                        {"reason", file.reason}});
    }
    output.table("files",
                 {{"keyring", "KEYRING"},
                  {"file", "FILE"},
                  {"description", "KEY"},
                  {"key", "SERIAL"},
                  {"state", "STATE"},
                  {"reason", "REASON"}},
                 rows);
    complainWithoutAgent(state, output);
    return complainOfRights(state, keyring, output);
}

using Verb = ExitStatus (*)(const std::string& keyring, Output& output);

void add(CLI::App& app, Action& chosen, const char* name, const char* text, Verb action) {
    CLI::App* const verb = app.add_subcommand(name, text);
    const auto keyring = std::make_shared<std::string>();
    addOptionalKeyring(*verb, *keyring);
    verb->callback([keyring, action, &chosen] {
        chosen = [keyring, action](Output& output) { return action(*keyring, output); };
    });
}

} // namespace

void addKeys(CLI::App& app, Action& chosen) {
    add(app, chosen, "keys", "Show the keys of the keyrings, and the files that carry them", keys);
}

void addFiles(CLI::App& app, Action& chosen) {
    add(app, chosen, "files", "Show the files of the directories, and the keys that came of them",
        files);
}

} // namespace Vestrel
