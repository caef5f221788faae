// SPDX-License-Identifier: Apache-2.0
// Every named log message there is.
#pragma once

#include "logmsg/AgentMessages.h"
#include "platform/zell/LogDescriptor.h"

#include <span>
#include <vector>

namespace Vestrel {

// The library's records, then those of the agent. The texts live as long as the library is loaded.
inline std::vector<Zell::LogDescriptor> catalogue(std::span<const Zell::LogDescriptor> library) {
    std::vector<Zell::LogDescriptor> all(library.begin(), library.end());
    all.insert(all.end(), agentDescriptors.begin(), agentDescriptors.end());
    return all;
}

} // namespace Vestrel
