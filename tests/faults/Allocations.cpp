// SPDX-License-Identifier: Apache-2.0
// Defines operator new and delete in the test executable, in front of the standard library's.
#include "tests/faults/Allocations.h"

#include "tests/fakes/Aside.h"

#include <dlfcn.h>
#include <execinfo.h>

#include <array>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

namespace Vestrel::Tests {

namespace {

struct Plan {
    bool isMade = false;
    std::size_t left = 0; // calls before the one that fails
    Failing failing = Failing::once;
    bool isReached = false;
    bool hasStruck = false;
};

constinit Plan plan;

bool isSpared() {
    const Aside aside;
    std::array<void*, 64> frames{};
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    for (int i = 0; i < count; ++i) {
        Dl_info function{};
        if (dladdr(frames[static_cast<std::size_t>(i)], &function) != 0 &&
            function.dli_sname != nullptr &&
            std::string_view(function.dli_sname).find("directory_iteratorC") !=
                std::string_view::npos) {
            return true;
        }
    }
    return false;
}

bool strikes() {
    if (!plan.isMade || Aside::exists()) {
        return false;
    }
    const bool isTurn = plan.isReached ? plan.failing == Failing::fromThenOn : plan.left-- == 0;
    plan.isReached = plan.isReached || isTurn;
    if (!isTurn || isSpared()) {
        return false;
    }
    plan.hasStruck = true;
    return true;
}

constinit bool isCounting = false;
constinit std::size_t counted = 0;

constinit std::function<void()>* onRelease = nullptr;

void released(void* memory) noexcept {
    if (onRelease != nullptr && memory != nullptr && !Aside::exists()) {
        std::function<void()>* const look = std::exchange(onRelease, nullptr);
        (*look)();
        onRelease = look;
    }
    std::free(memory);
}

void* allocated(std::size_t size, std::size_t alignment) {
    counted += isCounting && !Aside::exists() ? 1U : 0U;
    if (strikes()) {
        throw std::bad_alloc();
    }
    void* memory = nullptr;
    if (posix_memalign(&memory, alignment, size == 0 ? 1 : size) != 0) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

FailingAllocation::FailingAllocation(std::size_t nth, Failing failing) {
    plan = {true, nth - 1, failing, false, false};
}

FailingAllocation::~FailingAllocation() {
    plan.isMade = false;
}

bool FailingAllocation::isReached() {
    return plan.isReached;
}

bool FailingAllocation::hasStruck() {
    return plan.hasStruck;
}

CountedAllocations::CountedAllocations() {
    counted = 0;
    isCounting = true;
}

CountedAllocations::~CountedAllocations() {
    isCounting = false;
}

std::size_t CountedAllocations::count() {
    return counted;
}

ReleaseWatch::ReleaseWatch(std::function<void()> look) {
    onRelease = new std::function<void()>(std::move(look));
}

ReleaseWatch::~ReleaseWatch() {
    delete std::exchange(onRelease, nullptr);
}

} // namespace Vestrel::Tests

// Libraries find these only when the executable shows them.
#pragma GCC visibility push(default)

void* operator new(std::size_t size) {
    return Vestrel::Tests::allocated(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    return Vestrel::Tests::allocated(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory) noexcept {
    Vestrel::Tests::released(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    Vestrel::Tests::released(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept {
    Vestrel::Tests::released(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    Vestrel::Tests::released(memory);
}

#pragma GCC visibility pop
