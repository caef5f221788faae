// SPDX-License-Identifier: Apache-2.0
// Waiting, within bounds, for what the agent and the kernel do.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace Vestrel {

inline constexpr std::chrono::seconds defaultWait{10};

// The option --wait of a verb.
void addWait(CLI::App& verb, double& seconds);

// Asks again and again until the condition holds or the time is over; once with a limit of zero.
// True when it held.
bool holdsWithin(double seconds, const std::function<bool()>& condition);

} // namespace Vestrel
