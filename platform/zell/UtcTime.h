// SPDX-License-Identifier: Apache-2.0
// Points in time as text.
#pragma once

#include "platform/Export.h"

#include <chrono>
#include <string>

namespace Zell {

// Universal time to the millisecond, as RFC 3339 has it: "2026-11-21T20:39:19.042Z". Empty for the
// epoch itself, which stands for never.
VESTREL_EXPORT std::string utcText(std::chrono::system_clock::time_point time);

} // namespace Zell
