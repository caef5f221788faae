// SPDX-License-Identifier: Apache-2.0
// Where the agent and its clients meet.
#pragma once

namespace Vestrel {

inline constexpr const char* agentSocketDirectory = "/run/vestrel";
inline constexpr const char* agentSocket = "/run/vestrel/agent.sock";

} // namespace Vestrel
