// SPDX-License-Identifier: Apache-2.0
// Lets allocations of the code under test fail, and looks on when it gives memory back.
#pragma once

#include <cstddef>
#include <functional>

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

// While one lives, counts the calls of operator new, without what the tests ask for Aside. One at a
// time.
class CountedAllocations {
public:
    CountedAllocations();
    ~CountedAllocations();
    CountedAllocations(const CountedAllocations&) = delete;
    CountedAllocations& operator=(const CountedAllocations&) = delete;

    static std::size_t count();
};

// While one lives, `look` is called before memory goes back through operator delete, except by what
// `look` itself does and what the tests do Aside. One at a time.
class ReleaseWatch {
public:
    explicit ReleaseWatch(std::function<void()> look);
    ~ReleaseWatch();
    ReleaseWatch(const ReleaseWatch&) = delete;
    ReleaseWatch& operator=(const ReleaseWatch&) = delete;
};

} // namespace Vestrel::Tests
