// SPDX-License-Identifier: Apache-2.0
// Surroundings in which the fixed paths of the system can be used as they are.
#pragma once

namespace Vestrel::Bench {

// Gives the process an /etc and a /run of its own, and long datagram queues. Ends the process with
// a message when that cannot be had.
void privateSystem();

} // namespace Vestrel::Bench
