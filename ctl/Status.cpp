// SPDX-License-Identifier: Apache-2.0
// vestrelctl status: the state of everything at a glance, and whether it is healthy.
#include "ctl/AgentAnswer.h"
#include "ctl/State.h"
#include "ctl/Verbs.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>

namespace Vestrel {

namespace {

const std::array counterNames{
    "loads", "refusals", "unlinks", "notifications", "notificationsLost", "overflows", "upsets"};

// What is wrong with a file that is without a key or was refused.
std::string complaint(const FileRow& file) {
    if (file.description.empty()) {
        return " holds no readable certificate";
    }
    return file.key == 0 ? " has no key in " + file.keyring : " was refused";
}

class StatusView {
public:
    explicit StatusView(const State& state) : state_(state) {
        if (state_.hasAgent()) {
            agentRead();
        } else if (!state_.isAgentOutOfReach()) {
            problem(state_.noAgent() + "; watches, counters, failures and drift cannot be known");
        }
        for (const KeyringSurvey& survey : state_.surveys()) {
            keyringAdd(survey);
        }
    }

    std::vector<Table> tables() const;

    bool isHealthy() const { return problems_.empty(); }

private:
    void problem(const std::string& text) { problems_.push_back({{"problem", text}}); }

    void agentRead();
    void keyringAdd(const KeyringSurvey& survey);
    void keyringJudge(const KeyringSurvey& survey);
    std::string watched(const std::string& keyring);
    std::size_t keysWithoutFile(const std::string& keyring) const;
    std::size_t filesWithoutKey(const std::string& keyring);

    const State& state_;
    Json keyrings_ = Json::array();
    Json counters_ = Json::array();
    Json agent_ = Json::array();
    Json problems_ = Json::array();
};

void StatusView::agentRead() {
    const Json& status = state_.status();
    const Json& agent = objectIn(status, "agent");
    const Json& kernelMessages = objectIn(objectIn(status, "counters"), "kernelMessages");
    const Json& log = objectIn(objectIn(status, "counters"), "log");
    const Json& drift = objectIn(status, "drift");
    agent_.push_back({{"pid", numberIn(agent, "pid")},
                      {"version", textIn(agent, "version")},
                      {"startTime", textIn(agent, "startTime")},
                      {"datagrams", numberIn(kernelMessages, "datagrams")},
                      {"matches", numberIn(kernelMessages, "matches")},
                      {"messages", numberIn(log, "messages")},
                      {"suppressed", numberIn(log, "suppressed")},
                      {"recoveries", numberIn(drift, "recoveries")},
                      {"lastRecoveryTime", textIn(drift, "lastRecoveryTime")}});
    if (numberIn(objectIn(status, "syslogStateMachine"), "socketFd") == 0) {
        problem("the agent has no socket for kernel lines");
    }
    for (const std::string& difference : textsIn(drift, "differences")) {
        problem("drifted apart: " + difference);
    }
}

void StatusView::keyringAdd(const KeyringSurvey& survey) {
    const std::string& name = survey.keyringName;
    const Json* const counted = state_.counters(name);
    const auto last = [counted](const char* what) {
        return counted == nullptr ? Json("") : textIn(*counted, what);
    };
    keyringJudge(survey);
    Json row{{"keyring", name},
             {"serial", survey.serial == 0 ? Json() : Json(survey.serial)},
             {"directory", survey.directory},
             {"watched", watched(name)},
             {"keys", survey.isHidden ? Json() : Json(survey.keys.size())},
             {"files", survey.files.size()},
             {"keysWithoutFile", survey.isHidden ? Json() : Json(keysWithoutFile(name))},
             {"filesWithoutKey", survey.isHidden ? Json() : Json(filesWithoutKey(name))},
             {"lastFailureTime", last("lastFailureTime")},
             {"lastFailure", last("lastFailure")}};
    keyrings_.push_back(std::move(row));
    if (counted != nullptr) {
        Json numbers{{"keyring", name}};
        for (const char* const counter : counterNames) {
            numbers[counter] = numberIn(*counted, counter);
        }
        counters_.push_back(std::move(numbers));
    }
}

// A keyring that this kernel was built without is no problem, as long as nothing is to be in it.
void StatusView::keyringJudge(const KeyringSurvey& survey) {
    if (survey.keyringError != 0 && survey.keyringError != ENOKEY && !survey.isHidden) {
        problem(survey.keyringName + " cannot be read: " + std::strerror(survey.keyringError));
    }
    if (survey.directoryError != 0) {
        problem(survey.directory + " cannot be read: " + std::strerror(survey.directoryError));
    }
    if (!state_.hasAgent() || survey.serial == 0) {
        return;
    }
    const Watches watches = state_.watches(survey.keyringName);
    if (!watches.hasQueue) {
        problem(survey.keyringName + " is not watched");
    }
    if (!watches.hasDirectory) {
        problem(survey.directory + " is not watched");
    }
}

std::string StatusView::watched(const std::string& keyring) {
    if (!state_.hasAgent()) {
        return "unknown";
    }
    const Watches watches = state_.watches(keyring);
    if (watches.hasQueue != watches.hasDirectory) {
        return watches.hasQueue ? "keyring only" : "directory only";
    }
    return watches.hasQueue ? "both" : "no";
}

std::size_t StatusView::keysWithoutFile(const std::string& keyring) const {
    return static_cast<std::size_t>(std::ranges::count_if(
        state_.keys(keyring), [](const KeyRow& key) { return key.files.empty(); }));
}

// Every file is expected to have a key, and not to be refused.
std::size_t StatusView::filesWithoutKey(const std::string& keyring) {
    std::size_t count = 0;
    for (const FileRow& file : state_.files(keyring)) {
        if (file.state == "gone") {
            continue;
        }
        count += file.key == 0 ? 1U : 0U;
        if (file.key == 0 || !file.reason.empty()) {
            problem(file.path + complaint(file) + (file.reason.empty() ? "" : ": " + file.reason));
        }
    }
    return count;
}

std::vector<Table> StatusView::tables() const {
    return {{"keyrings",
             {{"keyring", "KEYRING"},
              {"serial", "SERIAL"},
              {"directory", "DIRECTORY"},
              {"watched", "WATCHED"},
              {"keys", "KEYS"},
              {"files", "FILES"},
              {"keysWithoutFile", "KEYS W/O FILE"},
              {"filesWithoutKey", "FILES W/O KEY"},
              {"lastFailureTime", "LAST FAILURE"},
              {"lastFailure", ""}},
             keyrings_},
            {"counters",
             {{"keyring", "KEYRING"},
              {"loads", "LOADS"},
              {"refusals", "REFUSALS"},
              {"unlinks", "UNLINKS"},
              {"notifications", "NOTIFICATIONS"},
              {"notificationsLost", "LOST"},
              {"overflows", "OVERFLOWS"},
              {"upsets", "UPSETS"}},
             counters_},
            {"agent",
             {{"pid", "PID"},
              {"version", "VERSION"},
              {"startTime", "SINCE"},
              {"datagrams", "DATAGRAMS"},
              {"matches", "MATCHES"},
              {"messages", "MESSAGES"},
              {"suppressed", "SUPPRESSED"},
              {"recoveries", "RECOVERIES"},
              {"lastRecoveryTime", "LAST RECOVERY"}},
             agent_},
            {"problems", {{"problem", "PROBLEM"}}, problems_}};
}

ExitStatus status(Output& output) {
    const State state;
    const StatusView view(state);
    output.tables(view.tables());
    if (state.isAgentOutOfReach()) {
        complainWithoutAgent(state, output); // else it is among the problems
    }
    return worse(view.isHealthy() ? ExitStatus::done : ExitStatus::unhealthy,
                 complainOfRights(state, {}, output));
}

} // namespace

void addStatus(CLI::App& app, Action& chosen) {
    app.add_subcommand("status", "Show the state of keyrings, directories and agent at a glance")
        ->callback([&chosen] { chosen = status; });
}

} // namespace Vestrel
