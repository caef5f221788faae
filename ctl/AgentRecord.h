// SPDX-License-Identifier: Apache-2.0
// What the agent has on record of the files that were refused.
#pragma once

#include "ctl/AgentAnswer.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Vestrel {

// Follows one file in the agent's record. Refusals from before, such as of an earlier file of that
// name, stay there; only those since this was made count.
class FileRecord {
public:
    // Asks the agent how things stand.
    FileRecord(std::string keyring, std::string path);

    // Asks again. An agent that is there but mute for a second may yet do its work, and is asked
    // another time.
    void update();

    // Why there is no agent; empty when there is one.
    const std::string& noAgent() const { return noAgent_; }

    // Why there was no answer the last time; empty when there was one.
    const std::string& silence() const { return silence_; }

    // Why the file was refused; empty as long as it was not.
    const std::string& refusal() const { return refusal_; }

private:
    // The refusal on record, the 0th when there is none; nothing: no answer.
    std::optional<Refusal> ask();

    std::string keyring_;
    std::string path_;
    std::string noAgent_;
    std::string silence_;
    std::string refusal_;
    std::optional<std::int64_t> before_; // the number of its refusal then; nothing: not known
};

// Why there is no agent; empty when there is one.
std::string noAgentReason();

} // namespace Vestrel
