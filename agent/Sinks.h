// SPDX-License-Identifier: Apache-2.0
// Where the agent's traces and log messages go.
#pragma once

#include "agent/Options.h"

namespace Vestrel {

// Sends text traces up to the chosen level to stderr, and log messages to the chosen place.
void sinksAre(const AgentOptions& options);

} // namespace Vestrel
