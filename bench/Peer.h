// SPDX-License-Identifier: Apache-2.0
// The same work by the log daemon of the field.
#pragma once

#include "bench/Report.h"

namespace Vestrel::Bench {

// Sends so many lines of each kind to a process that runs the state machine and to rsyslogd
// (imuxsock, mmnormalize, omfile), in turn; both write the same messages to a file. Reports the
// processor time of each. Without rsyslogd nothing is reported but that.
void measurePeer(Report& report, std::size_t lines, unsigned rounds);

// What main() does in the process that runs the state machine.
[[noreturn]] void serveLines();

} // namespace Vestrel::Bench
