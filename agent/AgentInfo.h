// SPDX-License-Identifier: Apache-2.0
// Which agent this is.
#pragma once

#include "platform/orvo/String.h"
#include "platform/zell/TypeData.h"

#include <cstdint>

namespace Vestrel {

struct AgentInfo {
    Orvo::String version;
    std::int64_t pid = 0;
    Orvo::String startTime; // universal time

    // Of this process, which starts now.
    static AgentInfo ofThisProcess();

    static const Zell::TypeData& typeData();
};

} // namespace Vestrel
