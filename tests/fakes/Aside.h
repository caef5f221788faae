// SPDX-License-Identifier: Apache-2.0
// Marks what the tests themselves do in the midst of the code under test.
#pragma once

namespace Vestrel::Tests {

/// While one exists, memory is asked for by the tests and not by the code under test: a prepared
/// failure of an allocation does not strike. One thread.
class Aside {
public:
    Aside() noexcept { ++depth_; }

    ~Aside() { --depth_; }

    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;

    static bool exists() noexcept { return depth_ != 0; }

private:
    static inline constinit int depth_ = 0;
};

} // namespace Vestrel::Tests
