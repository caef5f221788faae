// SPDX-License-Identifier: Apache-2.0
// The pool behind the tracked slab allocator and its accounts.
#include "platform/pelbin/Pelbin.h"

#include "platform/orvo/Threads.h"

#include <array>
#include <cstring>
#include <deque>
#include <memory_resource>
#include <mutex>
#include <new>

namespace Pelbin {

namespace {

#if defined(__SANITIZE_ADDRESS__)
#define PELBIN_PLAIN_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PELBIN_PLAIN_HEAP 1
#endif
#endif

#if defined(PELBIN_PLAIN_HEAP)

// Under the address sanitizer every object is its own heap block, so that a use after free is seen
// instead of hidden by a pool.
using Slabs = std::pmr::polymorphic_allocator<>;

#else

// Blocks of a pool. Small ones that are given back wait in a list of their size, where the next of
// that size finds them at once.
class Slabs {
public:
    void* allocate_bytes(std::size_t bytes, std::size_t alignment) {
        if (!isListed(bytes, alignment)) {
            return pool_.allocate(bytes, alignment);
        }
        Waiting*& first = waiting_[listOf(bytes)];
        if (first == nullptr) {
            return pool_.allocate((listOf(bytes) + 1) * step, step);
        }
        Waiting* const taken = first;
        first = taken->next;
        return taken;
    }

    void deallocate_bytes(void* memory, std::size_t bytes, std::size_t alignment) noexcept {
        if (!isListed(bytes, alignment)) {
            pool_.deallocate(memory, bytes, alignment);
            return;
        }
        Waiting*& first = waiting_[listOf(bytes)];
        first = new (memory) Waiting{first};
    }

private:
    struct Waiting {
        Waiting* next;
    };

    static constexpr std::size_t step = 16; // sizes are rounded up to it
    static constexpr std::size_t lists = 64;
    static_assert(step >= sizeof(Waiting) && step >= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

    static bool isListed(std::size_t bytes, std::size_t alignment) noexcept {
        return bytes != 0 && bytes <= lists * step && alignment <= step;
    }

    static std::size_t listOf(std::size_t bytes) noexcept { return (bytes - 1) / step; }

    std::pmr::unsynchronized_pool_resource pool_;
    std::array<Waiting*, lists> waiting_{};
};

#endif

struct State {
    std::deque<Account> accounts;
    std::mutex mutex;
    Slabs slabs;
};

// Never destroyed: static objects of other libraries give their memory back after this one's own
// static destructors have run.
State& state() {
    static State* const mine = new State;
    return *mine;
}

// Locks only in a process that said it is threaded.
class Guard {
public:
    explicit Guard(std::mutex& mutex) {
        if (Orvo::threaded()) {
            lock_ = std::unique_lock(mutex);
        }
    }

private:
    std::unique_lock<std::mutex> lock_;
};

} // namespace

Account* accountIs(const char* typeName) {
    State& mine = state();
    const Guard guard(mine.mutex);
    for (Account& account : mine.accounts) {
        if (std::strcmp(account.typeName, typeName) == 0) {
            return &account;
        }
    }
    return &mine.accounts.emplace_back(Account{typeName, 0, 0});
}

std::vector<Account> accounts() {
    State& mine = state();
    const Guard guard(mine.mutex);
    return {mine.accounts.begin(), mine.accounts.end()};
}

Account total() {
    Account sum{"total", 0, 0};
    for (const Account& account : accounts()) {
        sum.objects += account.objects;
        sum.bytes += account.bytes;
    }
    return sum;
}

void* allocate(Account* account, std::size_t bytes, std::size_t alignment) {
    State& mine = state();
    const Guard guard(mine.mutex);
    void* const memory = mine.slabs.allocate_bytes(bytes, alignment);
    ++account->objects;
    account->bytes += bytes;
    return memory;
}

void deallocate(Account* account, void* memory, std::size_t bytes, std::size_t alignment) noexcept {
    State& mine = state();
    const Guard guard(mine.mutex);
    --account->objects;
    account->bytes -= bytes;
    mine.slabs.deallocate_bytes(memory, bytes, alignment);
}

} // namespace Pelbin
