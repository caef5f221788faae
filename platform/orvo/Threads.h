// SPDX-License-Identifier: Apache-2.0
// Whether the process shares nodes and strings between threads.
#pragma once

#include "platform/Export.h"

#include <atomic>
#include <cstdint>

namespace Orvo {

namespace Impl {
extern VESTREL_EXPORT std::atomic<bool> threadedFlag;
} // namespace Impl

// True once threadedIs() was called. Reference counts and the slab allocator are plain before and
// atomic afterwards.
inline bool threaded() noexcept {
    return Impl::threadedFlag.load(std::memory_order_relaxed);
}

// Declares that nodes or strings will be used by more than one thread. To be called before the
// second thread starts; there is no way back.
VESTREL_EXPORT void threadedIs() noexcept;

// A reference count that costs a plain increment until the process is threaded.
class RefCount {
public:
    explicit RefCount(std::uint32_t initial) noexcept : count_(initial) {}

    std::uint32_t value() const noexcept { return count_.load(std::memory_order_acquire); }

    void increment() noexcept {
        if (threaded()) {
            count_.fetch_add(1, std::memory_order_relaxed);
        } else {
            count_.store(count_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        }
    }

    // Returns what is left.
    std::uint32_t decrement() noexcept {
        if (threaded()) {
            return count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        }
        const std::uint32_t left = count_.load(std::memory_order_relaxed) - 1;
        count_.store(left, std::memory_order_relaxed);
        return left;
    }

private:
    std::atomic<std::uint32_t> count_;
};

} // namespace Orvo
