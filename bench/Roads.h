// SPDX-License-Identifier: Apache-2.0
// The ways of draining the kernel message socket that are compared.
#pragma once

#include "bench/Report.h"

namespace Vestrel::Bench {

// Drains the same datagrams by a bare read loop, by the state machine, and by a road that differs
// from the state machine's in using the standard matcher; reports the medians of the rounds. Log
// messages go to stderr, which is /dev/null meanwhile.
void compareRoads(Report& report, unsigned rounds);

} // namespace Vestrel::Bench
