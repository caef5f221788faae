// SPDX-License-Identifier: Apache-2.0
// Surroundings in which the fixed paths of the system can be used as they are.
#pragma once

namespace Vestrel::Bench {

// These end the process with a message when what they are for cannot be had.

// Gives the process an /etc and a /run of its own.
void ownDirectories();

// Gives the process a network of its own, with long datagram queues.
void longQueues();

} // namespace Vestrel::Bench
