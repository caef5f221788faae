// SPDX-License-Identifier: Apache-2.0
// The agent's own record and its type table.
#include "agent/AgentInfo.h"

#include "platform/zell/UtcTime.h"

#include <unistd.h>

#include <chrono>

namespace Vestrel {

namespace {

const Zell::TypeRegistration registration(AgentInfo::typeData());

} // namespace

AgentInfo AgentInfo::ofThisProcess() {
    return {VESTREL_VERSION, getpid(), Zell::utcText(std::chrono::system_clock::now())};
}

const Zell::TypeData& AgentInfo::typeData() {
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::AgentInfo"))
            .attributeIs(Zell::keyAttribute<&AgentInfo::version>("version"))
            .attributeIs(Zell::keyAttribute<&AgentInfo::pid>("pid"))
            .attributeIs(Zell::keyAttribute<&AgentInfo::startTime>("startTime"));
    return type;
}

} // namespace Vestrel
