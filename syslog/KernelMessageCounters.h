// SPDX-License-Identifier: Apache-2.0
// What has come through the socket for kernel lines since the process began.
#pragma once

#include "platform/Export.h"
#include "platform/zell/TypeData.h"

#include <cstdint>

namespace Vestrel {

// Counted by the state machines of the process, read on the event thread through the type table.
struct VESTREL_EXPORT KernelMessageCounters {
    std::int64_t datagrams = 0; // read from the socket
    std::int64_t matches = 0;   // of them, records of a failed appraisal
    std::int64_t failures = 0;  // reads that failed

    static KernelMessageCounters& counters();
    static const Zell::TypeData& typeData();
};

} // namespace Vestrel
