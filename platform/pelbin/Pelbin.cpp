// SPDX-License-Identifier: Apache-2.0
// The pool behind the tracked slab allocator and its accounts.
#include "platform/pelbin/Pelbin.h"

#include "platform/orvo/Threads.h"

#include <cstring>
#include <deque>
#include <memory_resource>
#include <mutex>

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
constexpr bool listsAreUsed = false;

#else

class Slabs {
public:
    void* allocate_bytes(std::size_t bytes, std::size_t alignment) {
        if (!Impl::lists.serve(bytes, alignment)) {
            return pool_.allocate(bytes, alignment);
        }
        void* const waiting = Impl::lists.take(bytes);
        return waiting != nullptr ? waiting
                                  : pool_.allocate(Impl::Lists::rounded(bytes), Impl::Lists::step);
    }

    void deallocate_bytes(void* memory, std::size_t bytes, std::size_t alignment) noexcept {
        if (Impl::lists.serve(bytes, alignment)) {
            Impl::lists.put(memory, bytes);
        } else {
            pool_.deallocate(memory, bytes, alignment);
        }
    }

private:
    std::pmr::unsynchronized_pool_resource pool_;
};

constexpr bool listsAreUsed = true;

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

constinit Impl::Lists Impl::lists(listsAreUsed);

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

void* Impl::allocate(Account* account, std::size_t bytes, std::size_t alignment) {
    State& mine = state();
    const Guard guard(mine.mutex);
    void* const memory = mine.slabs.allocate_bytes(bytes, alignment);
    ++account->objects;
    account->bytes += bytes;
    return memory;
}

void Impl::deallocate(Account* account, void* memory, std::size_t bytes,
                      std::size_t alignment) noexcept {
    State& mine = state();
    const Guard guard(mine.mutex);
    --account->objects;
    account->bytes -= bytes;
    mine.slabs.deallocate_bytes(memory, bytes, alignment);
}

} // namespace Pelbin
