// SPDX-License-Identifier: Apache-2.0
// Tells the refusals of a file from those of its predecessors.
#include "ctl/AgentRecord.h"

#include "ctl/AgentClient.h"

#include <utility>

namespace Vestrel {

namespace {

constexpr std::chrono::seconds shortPatience{1}; // the keyring is looked at in between

} // namespace

Json member(const Json& object, const std::string& name) {
    const auto found = object.is_object() ? object.find(name) : object.end();
    return found == object.end() ? Json() : *found;
}

Json countersOf(const Json& status, const std::string& keyring) {
    return member(member(member(status, "counters"), "keyrings"), keyring);
}

std::string refusalOf(const Json& counters, const std::string& path) {
    const Json refusal = member(member(counters, "refused"), path);
    return refusal.is_string() ? refusal.get<std::string>() : "";
}

FileRecord::FileRecord(std::string keyring, std::string path)
    : keyring_(std::move(keyring)), path_(std::move(path)), before_(counters()) {}

void FileRecord::update() {
    const Json now = counters();
    const std::string reason = refusalOf(now, path_);
    if (before_.is_object() && !reason.empty() && isNew(now, reason)) {
        refusal_ = reason;
    }
}

Json FileRecord::counters() {
    noAgent_.clear();
    silence_.clear();
    try {
        return countersOf(AgentClient(shortPatience).ask("Status"), keyring_);
    } catch (const NoAgent& reason) {
        noAgent_ = reason.what();
    } catch (const std::runtime_error& reason) {
        silence_ = reason.what();
    }
    return {};
}

// One that was on record before shows by the count of all and by being the last.
bool FileRecord::isNew(const Json& counters, const std::string& reason) const {
    const auto count = [](const Json& of) {
        const Json refusals = member(of, "refusals");
        return refusals.is_number_integer() ? refusals.get<std::int64_t>() : 0;
    };
    return refusalOf(before_, path_).empty() ||
           (count(counters) > count(before_) &&
            member(counters, "lastFailure") == Json(path_ + ": " + reason));
}

std::string noAgentReason() {
    try {
        const AgentClient agent(shortPatience);
        return {};
    } catch (const NoAgent& reason) {
        return reason.what();
    }
}

} // namespace Vestrel
