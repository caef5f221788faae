// SPDX-License-Identifier: Apache-2.0
// Brings together what kernel, directories and agent say.
#include "ctl/State.h"

#include "ctl/AgentAnswer.h"
#include "ctl/AgentClient.h"
#include "keymodel/TemporarySuffix.h"
#include "keyring/IntegrityKeyringSm.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace Vestrel {

namespace {

constexpr const char* inStep = "in step";
constexpr const char* notOnRecord = "not on record";
constexpr const char* gone = "gone";

std::vector<std::string> carriers(const KeyringSurvey& survey, const std::string& description) {
    std::vector<std::string> files;
    for (const auto& [path, carried] : survey.files) {
        if (!carried.empty() && recordedDescription(carried) == description) {
            files.push_back(path);
        }
    }
    return files;
}

S32 keyOf(const KeyringSurvey& survey, const std::string& description) {
    const auto found = std::ranges::find_if(survey.keys, [&](const IntegrityKey& key) {
        return !description.empty() && key.description.view() == recordedDescription(description);
    });
    return found == survey.keys.end() ? 0 : found->serial;
}

} // namespace

State::State() {
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        surveys_.push_back(surveyed(name));
    }
    try {
        AgentClient agent;
        status_ = agent.ask("Status");
        for (const char* const name : IntegrityKeyringSm::keyringNames) {
            const Json answer = agent.ask("Keyrings", {{"keyring", name}});
            keyrings_[name] = objectIn(objectIn(answer, "keyring"), name);
        }
    } catch (const NoAgent& reason) {
        noAgent_ = reason.what();
    } catch (const AgentOutOfReach& reason) {
        noAgent_ = reason.what();
        isAgentOutOfReach_ = true;
    }
}

const Json* State::counters(const std::string& keyring) const {
    return hasAgent() ? &countersOf(status_, keyring) : nullptr;
}

Watches State::watches(const std::string& keyring) const {
    if (!hasAgent()) {
        return {};
    }
    const Json& all = objectIn(objectIn(status_, "keyringStateMachine"), "watcherInfos");
    if (!all.contains(keyring)) { // the kernel does not have it
        return {};
    }
    const Json& watcher = objectIn(all, keyring);
    return {numberIn(watcher, "readFd") != 0, numberIn(watcher, "inotifyFd") != 0};
}

const Json& State::record(const std::string& keyring, const char* collection) const {
    static const Json nothing = Json::object();
    return hasAgent() ? objectIn(keyrings_.at(keyring), collection) : nothing;
}

std::vector<KeyRow> State::keys(const std::string& keyring) const {
    std::vector<KeyRow> rows;
    for (const KeyringSurvey& survey : surveys_) {
        if (keyring.empty() || keyring == survey.keyringName) {
            keysAdd(survey, rows);
        }
    }
    return rows;
}

void State::keysAdd(const KeyringSurvey& survey, std::vector<KeyRow>& rows) const {
    const Json& recorded = record(survey.keyringName, "key");
    const auto first = static_cast<std::ptrdiff_t>(rows.size());
    for (const IntegrityKey& key : survey.keys) {
        const std::string description(key.description.view());
        const char* const state =
            recorded.contains(std::to_string(key.serial)) ? inStep : notOnRecord;
        rows.push_back({survey.keyringName, key.serial, description, std::string(key.type.view()),
                        carriers(survey, description), hasAgent() ? state : ""});
    }
    for (const auto& [name, value] : recorded.items()) {
        const Json& key = asObject(value, name);
        const auto serial = numberIn<S32>(key, "serial");
        const std::string description = textIn(key, "description");
        const std::string type = textIn(key, "type");
        if (!survey.members.contains(serial)) {
            rows.push_back({survey.keyringName, serial, description, type,
                            carriers(survey, description), survey.isHidden ? "" : gone});
        }
    }
    std::sort(rows.begin() + first, rows.end(), [](const KeyRow& a, const KeyRow& b) {
        return std::tie(a.description, a.serial) < std::tie(b.description, b.serial);
    });
}

std::vector<FileRow> State::files(const std::string& keyring) const {
    std::vector<FileRow> rows;
    for (const KeyringSurvey& survey : surveys_) {
        if (keyring.empty() || keyring == survey.keyringName) {
            filesAdd(survey, rows);
        }
    }
    return rows;
}

void State::filesAdd(const KeyringSurvey& survey, std::vector<FileRow>& rows) const {
    std::set<std::string> paths;
    for (const auto& [path, description] : survey.files) {
        paths.insert(path);
    }
    const Json& recorded = record(survey.keyringName, "fileToDescription");
    for (const auto& [path, description] : recorded.items()) {
        asText(description, path);
        if (!std::string_view(path).ends_with(temporarySuffix)) {
            paths.insert(path);
        }
    }
    for (const std::string& path : paths) {
        rows.push_back(fileRow(survey, path));
    }
}

FileRow State::fileRow(const KeyringSurvey& survey, const std::string& path) const {
    const auto found = survey.files.find(path);
    const Json& recorded = record(survey.keyringName, "fileToDescription");
    const bool isOnRecord = recorded.contains(path);
    FileRow row{survey.keyringName, path, "", 0, "", ""};
    if (found != survey.files.end()) {
        row.description = found->second;
    } else {
        row.description = textIn(recorded, path);
    }
    row.key = keyOf(survey, row.description);
    if (!hasAgent()) {
        return row;
    }
    row.reason = refusalOf(*counters(survey.keyringName), path).value_or(Refusal()).reason;
    if (found == survey.files.end()) {
        row.state = gone;
    } else if (row.description.empty()) {
        row.state = "no certificate"; // whether the agent has seen it or not
    } else if (!row.reason.empty()) {
        row.state = "refused";
    } else if (isOnRecord) {
        row.state = inStep;
    } else {
        row.state = notOnRecord;
    }
    return row;
}

void complainWithoutAgent(const State& state, Output& output) {
    if (!state.hasAgent()) {
        output.complaint(state.noAgent() +
                         "; what an agent has on record, watches, counted and was refused cannot "
                         "be known");
    }
}

ExitStatus complainOfRights(const State& state, const std::string& keyring, Output& output) {
    std::string hidden;
    for (const KeyringSurvey& survey : state.surveys()) {
        if (survey.isHidden && (keyring.empty() || keyring == survey.keyringName)) {
            hidden += (hidden.empty() ? "" : ", ") + survey.keyringName;
        }
    }
    if (!hidden.empty()) {
        output.complaint("only root can see " + hidden + "; which keys are there cannot be known");
    }
    return hidden.empty() && !state.isAgentOutOfReach() ? ExitStatus::done : ExitStatus::unknown;
}

} // namespace Vestrel
