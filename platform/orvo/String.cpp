// SPDX-License-Identifier: Apache-2.0
// The shared block behind Orvo::String.
#include "platform/orvo/String.h"

#include "platform/pelbin/Pelbin.h"

#include <atomic>
#include <cstring>
#include <new>

namespace Orvo {

namespace {

constinit std::atomic<Pelbin::Account*> theAccount = nullptr;

[[gnu::noinline]] Pelbin::Account* accountOpened() {
    return theAccount = Pelbin::accountIs("Orvo::String");
}

// Strings are made before static objects are.
inline Pelbin::Account* account() {
    Pelbin::Account* const mine = theAccount.load(std::memory_order_relaxed);
    return mine != nullptr ? mine : accountOpened();
}

} // namespace

void String::Block::release(Block* block) noexcept {
    const std::size_t bytes = sizeof(Block) + block->size + 1;
    block->~Block();
    Pelbin::deallocate(account(), block, bytes, alignof(Block));
}

String::String(std::string_view text) {
    if (text.empty()) {
        return;
    }
    const std::size_t bytes = sizeof(Block) + text.size() + 1;
    void* const memory = Pelbin::allocate(account(), bytes, alignof(Block));
    block_ = new (memory) Block{RefCount(1), text.size()};
    std::memcpy(block_->text(), text.data(), text.size());
    block_->text()[text.size()] = '\0';
}

} // namespace Orvo
