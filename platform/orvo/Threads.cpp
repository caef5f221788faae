// SPDX-License-Identifier: Apache-2.0
// The process-wide switch from plain to atomic reference counts.
#include "platform/orvo/Threads.h"

namespace Orvo {

namespace Impl {
std::atomic<bool> threadedFlag{false};
} // namespace Impl

void threadedIs() noexcept {
    Impl::threadedFlag.store(true, std::memory_order_seq_cst);
}

} // namespace Orvo
