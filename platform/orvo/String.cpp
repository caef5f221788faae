// SPDX-License-Identifier: Apache-2.0
// The shared block behind Orvo::String.
#include "platform/orvo/String.h"

#include "platform/pelbin/Pelbin.h"

#include <cstring>
#include <new>

namespace Orvo {

namespace {

Pelbin::Account* account() {
    static Pelbin::Account* const mine = Pelbin::accountIs("Orvo::String");
    return mine;
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
