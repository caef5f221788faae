// SPDX-License-Identifier: Apache-2.0
// The tracked slab allocator: entities and collection nodes come from one pool, and the objects and
// bytes alive are counted per type.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Threads.h"

#include <array>
#include <cstddef>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace Pelbin {

// The account of one type. Lives as long as the process.
struct Account {
    const char* typeName;
    std::size_t objects; // alive now
    std::size_t bytes;   // alive now
};

// Opens an account; each type opens its own once. `typeName` must outlive the process.
VESTREL_EXPORT Account* accountIs(const char* typeName);

// The accounts that have ever been opened, in the order of opening.
VESTREL_EXPORT std::vector<Account> accounts();

// Objects and bytes alive in all accounts together.
VESTREL_EXPORT Account total();

namespace Impl {

// Small blocks that were given back wait in a list of their size, where the next of that size finds
// them at once.
struct Waiting {
    Waiting* next;
};

class VESTREL_EXPORT Lists {
public:
    constexpr explicit Lists(bool used) : used_(used) {}

    static constexpr std::size_t step = 16; // sizes are rounded up to it
    static_assert(step >= sizeof(Waiting) && step >= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

    // Whether blocks of that size and alignment may be taken from lists and put into them now.
    bool serve(std::size_t bytes, std::size_t alignment) const noexcept {
        return used_ && bytes - 1 < count * step && alignment <= step; // 0 bytes wrap
    }

    // The memory that a block of that size occupies.
    static std::size_t rounded(std::size_t bytes) noexcept { return (list(bytes) + 1) * step; }

    void* take(std::size_t bytes) noexcept {
        Waiting*& first = first_[list(bytes)];
        return first == nullptr ? nullptr : std::exchange(first, first->next);
    }

    void put(void* memory, std::size_t bytes) noexcept {
        Waiting*& first = first_[list(bytes)];
        first = new (memory) Waiting{first};
    }

private:
    static constexpr std::size_t count = 64;

    static std::size_t list(std::size_t bytes) noexcept { return (bytes - 1) / step; }

    bool used_;
    std::array<Waiting*, count> first_{};
};

extern VESTREL_EXPORT Lists lists;

VESTREL_EXPORT void* allocate(Account* account, std::size_t bytes, std::size_t alignment);
VESTREL_EXPORT void deallocate(Account* account, void* memory, std::size_t bytes,
                               std::size_t alignment) noexcept;

} // namespace Impl

// Throws std::bad_alloc when memory is out.
inline void* allocate(Account* account, std::size_t bytes, std::size_t alignment) {
    if (!Orvo::threaded() && Impl::lists.serve(bytes, alignment)) {
        if (void* const memory = Impl::lists.take(bytes); memory != nullptr) {
            ++account->objects;
            account->bytes += bytes;
            return memory;
        }
    }
    return Impl::allocate(account, bytes, alignment);
}

inline void deallocate(Account* account, void* memory, std::size_t bytes,
                       std::size_t alignment) noexcept {
    if (!Orvo::threaded() && Impl::lists.serve(bytes, alignment)) {
        --account->objects;
        account->bytes -= bytes;
        Impl::lists.put(memory, bytes);
        return;
    }
    Impl::deallocate(account, memory, bytes, alignment);
}

// Gives a class its operator new and delete. `Label::pelbinName` names the account.
template <class Type>
class Tracked {
public:
    static void* operator new(std::size_t bytes) {
        return allocate(account(), bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    }

    static void operator delete(void* memory, std::size_t bytes) noexcept {
        deallocate(account(), memory, bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    }

private:
    static Account* account() {
        static Account* const mine = accountIs(Type::pelbinName);
        return mine;
    }
};

// A standard allocator that draws from the pool on the account of `Label`.
template <class Type, class Label>
class Allocator {
public:
    using value_type = Type;

    template <class Other>
    struct rebind {
        using other = Allocator<Other, Label>;
    };

    Allocator() noexcept = default;

    template <class Other>
    explicit(false) Allocator(const Allocator<Other, Label>& /*other*/) noexcept {}

    Type* allocate(std::size_t count) {
        return static_cast<Type*>(Pelbin::allocate(account(), count * sizeof(Type), alignof(Type)));
    }

    void deallocate(Type* memory, std::size_t count) noexcept {
        Pelbin::deallocate(account(), memory, count * sizeof(Type), alignof(Type));
    }

    friend bool operator==(const Allocator& /*a*/, const Allocator& /*b*/) noexcept { return true; }

private:
    static Account* account() {
        static Account* const mine = accountIs(Label::pelbinName);
        return mine;
    }
};

} // namespace Pelbin
