// SPDX-License-Identifier: Apache-2.0
// What one kernel line costs the state machine's own code.
#pragma once

#include "bench/Report.h"

namespace Vestrel::Bench {

// The instructions of a line that matches and of one that does not, counted by callgrind, which
// sees nothing of the kernel; where valgrind is not installed, it says so.
void measureInstructions(Report& report);

// Traces that are off against traces that were compiled out, for lines that do not match.
void measureTraces(Report& report, unsigned rounds);

} // namespace Vestrel::Bench
