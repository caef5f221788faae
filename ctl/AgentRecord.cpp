// SPDX-License-Identifier: Apache-2.0
// Tells the refusals of a file from those of its predecessors.
#include "ctl/AgentRecord.h"

#include "ctl/AgentClient.h"

#include <utility>

namespace Vestrel {

namespace {

constexpr std::chrono::seconds shortPatience{1}; // the keyring is looked at in between

} // namespace

FileRecord::FileRecord(std::string keyring, std::string path)
    : keyring_(std::move(keyring)), path_(std::move(path)) {
    if (const auto now = ask()) {
        before_ = now->number;
    }
}

void FileRecord::update() {
    const auto now = ask();
    if (before_ && now && now->number != 0 && now->number != *before_) {
        refusal_ = now->reason;
    }
}

std::optional<Refusal> FileRecord::ask() {
    noAgent_.clear();
    silence_.clear();
    try {
        const Json status = AgentClient(shortPatience).ask("Status");
        return refusalOf(countersOf(status, keyring_), path_).value_or(Refusal());
    } catch (const NoAgent& reason) {
        noAgent_ = reason.what();
    } catch (const std::runtime_error& reason) {
        silence_ = reason.what();
    }
    return {};
}

std::string noAgentReason() {
    try {
        const AgentClient agent(shortPatience);
        return {};
    } catch (const NoAgent& reason) {
        return reason.what();
    } catch (const AgentOutOfReach&) {
        return {}; // there may be one
    }
}

} // namespace Vestrel
