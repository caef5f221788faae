// SPDX-License-Identifier: Apache-2.0
// Tells the refusals of a file from those of its predecessors.
#include "ctl/AgentRecord.h"

#include "ctl/AgentClient.h"

#include <utility>

namespace Vestrel {

namespace {

constexpr std::chrono::seconds shortPatience{1}; // the keyring is looked at in between

Json refusal(const Json& counters, const std::string& path) {
    return member(member(counters, "refused"), path);
}

// Each has its own; 0 without one.
std::int64_t numberOf(const Json& counters, const std::string& path) {
    const Json number = member(refusal(counters, path), "number");
    return number.is_number_integer() ? number.get<std::int64_t>() : 0;
}

} // namespace

Json member(const Json& object, const std::string& name) {
    const auto found = object.is_object() ? object.find(name) : object.end();
    return found == object.end() ? Json() : *found;
}

Json countersOf(const Json& status, const std::string& keyring) {
    return member(member(member(status, "counters"), "keyrings"), keyring);
}

std::string refusalOf(const Json& counters, const std::string& path) {
    const Json reason = member(refusal(counters, path), "reason");
    return reason.is_string() ? reason.get<std::string>() : "";
}

FileRecord::FileRecord(std::string keyring, std::string path)
    : keyring_(std::move(keyring)), path_(std::move(path)) {
    if (const Json counted = counters(); !counted.is_null()) {
        before_ = numberOf(counted, path_);
    }
}

void FileRecord::update() {
    const Json now = counters();
    if (before_ && numberOf(now, path_) != 0 && numberOf(now, path_) != *before_) {
        refusal_ = refusalOf(now, path_);
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
