// SPDX-License-Identifier: Apache-2.0
// The keyrings as kernel, directories and, where there is one, the agent know them.
#pragma once

#include "ctl/ExitStatus.h"
#include "ctl/Output.h"
#include "survey/KeyringSurvey.h"

#include <string>
#include <vector>

namespace Vestrel {

struct KeyRow {
    std::string keyring;
    S32 serial = 0;
    std::string description;
    std::string type;
    std::vector<std::string> files; // that carry its description
    std::string state;              // "in step"; "not on record", "gone"; empty without an agent
};

struct FileRow {
    std::string keyring;
    std::string path;
    std::string description; // empty: no certificate
    S32 key = 0;             // in the kernel, of that description; 0: there is none
    std::string reason;      // why there is none, as far as the agent knows
    std::string state;       // as of a key, "refused" and "no certificate"; empty without an agent
};

struct Watches {
    bool hasQueue = false;     // for changes of the keyring
    bool hasDirectory = false; // for those of its directory
};

// What was asked of the agent, and why it could not be.
class State {
public:
    // Asks kernel, directories and agent. Throws std::runtime_error for an agent that is there and
    // does not answer.
    State();

    bool hasAgent() const { return noAgent_.empty(); }

    // Why there is none, or that this user may not ask.
    const std::string& noAgent() const { return noAgent_; }

    // The latter: there may be one all the same.
    bool isAgentOutOfReach() const { return isAgentOutOfReach_; }

    const std::vector<KeyringSurvey>& surveys() const { return surveys_; }

    // The agent's answer to "Status"; null without one. What follows reads the agent's answers, and
    // throws std::runtime_error where they are not as agreed.
    const Json& status() const { return status_; }

    // What it counted of the keyring; nullptr without one.
    const Json* counters(const std::string& keyring) const;
    // Which watches it has on record; none without one.
    Watches watches(const std::string& keyring) const;

    // Of the one keyring, or of all when the name is empty; in the order of their descriptions.
    std::vector<KeyRow> keys(const std::string& keyring = {}) const;
    std::vector<FileRow> files(const std::string& keyring = {}) const;

private:
    void keysAdd(const KeyringSurvey& survey, std::vector<KeyRow>& rows) const;
    void filesAdd(const KeyringSurvey& survey, std::vector<FileRow>& rows) const;
    FileRow fileRow(const KeyringSurvey& survey, const std::string& path) const;
    const Json& record(const std::string& keyring, const char* collection) const;

    std::vector<KeyringSurvey> surveys_;
    std::string noAgent_;
    bool isAgentOutOfReach_ = false;
    Json status_;
    Json keyrings_ = Json::object(); // what the agent has on record of each
};

// Says on standard error what cannot be known when there is no agent, or this user may not ask it.
void complainWithoutAgent(const State& state, Output& output);

// Says on standard error that this user sees not all of the keyring, or of all when the name is
// empty. `unknown` when so, or when the agent is out of reach; else `done`.
ExitStatus complainOfRights(const State& state, const std::string& keyring, Output& output);

} // namespace Vestrel
