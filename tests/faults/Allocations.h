// SPDX-License-Identifier: Apache-2.0
// Lets allocations of the code under test fail.
#pragma once

#include <cstddef>

namespace Vestrel::Tests {

enum class Failing { once, fromThenOn };

// While one lives, the n-th call of operator new from its making throws std::bad_alloc, and after
// it all further ones where it says so. What the tests ask for Aside does not count. Spared is what
// the standard library asks for when it opens a directory: it ends the process when memory is out.
class FailingAllocation {
public:
    FailingAllocation(std::size_t nth, Failing failing);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    // Whether there were as many calls, and whether one of them failed.
    static bool isReached();
    static bool hasStruck();
};

} // namespace Vestrel::Tests
