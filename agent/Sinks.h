// SPDX-License-Identifier: Apache-2.0
// Where the agent's traces and log messages go.
#pragma once

#include "agent/Options.h"
#include "platform/zell/LogFacility.h"

namespace Vestrel {

// Sends text traces up to the chosen level to stderr, and log messages to the chosen place, after
// which the observer sees them.
void sinksAre(const AgentOptions& options, Zell::LogSink observer = nullptr);

} // namespace Vestrel
