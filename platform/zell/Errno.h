// SPDX-License-Identifier: Apache-2.0
// The cause of a failed call, kept before anything can change it.
#pragma once

#include <cerrno>
#include <cstring>
#include <ostream>

namespace Zell {

// Takes errno when it is made; streams as strerror().
class Errno {
public:
    Errno() noexcept : value_(errno) {}

    int value() const noexcept { return value_; }

    const char* text() const noexcept { return std::strerror(value_); }

    friend std::ostream& operator<<(std::ostream& out, const Errno& cause) {
        return out << cause.text();
    }

private:
    int value_;
};

} // namespace Zell
