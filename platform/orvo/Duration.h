// SPDX-License-Identifier: Apache-2.0
// The framework's time span value.
#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <ostream>

namespace Orvo {

// A signed span of nanoseconds; the default is zero.
class Duration {
public:
    constexpr Duration() noexcept = default;

    constexpr explicit(false) Duration(std::chrono::nanoseconds span) noexcept : span_(span) {}

    constexpr std::chrono::nanoseconds nanoseconds() const noexcept { return span_; }

    constexpr bool isZero() const noexcept { return span_.count() == 0; }

    friend constexpr auto operator<=>(const Duration& a, const Duration& b) noexcept = default;

    // In seconds, such as "0.25s".
    friend std::ostream& operator<<(std::ostream& out, const Duration& duration) {
        return out << std::chrono::duration<double>(duration.span_).count() << 's';
    }

private:
    std::chrono::nanoseconds span_{0};
};

} // namespace Orvo
