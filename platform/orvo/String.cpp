// SPDX-License-Identifier: Apache-2.0
// The shared block behind Orvo::String.
#include "platform/orvo/String.h"

#include "platform/orvo/Threads.h"
#include "platform/pelbin/Pelbin.h"

#include <cstring>
#include <new>
#include <utility>

namespace Orvo {

// The characters and a terminating NUL follow the header.
struct String::Block {
    RefCount count;
    std::size_t size;

    static Pelbin::Account* account() {
        static Pelbin::Account* const mine = Pelbin::accountIs("Orvo::String");
        return mine;
    }

    static std::size_t footprint(std::size_t size) noexcept { return sizeof(Block) + size + 1; }

    static Block* make(std::string_view text) {
        void* const memory = Pelbin::allocate(account(), footprint(text.size()), alignof(Block));
        auto* const block = new (memory) Block{RefCount(1), text.size()};
        std::memcpy(block->text(), text.data(), text.size());
        block->text()[text.size()] = '\0';
        return block;
    }

    char* text() noexcept { return reinterpret_cast<char*>(this + 1); }

    void release() noexcept {
        if (count.decrement() == 0) {
            const std::size_t bytes = footprint(size);
            this->~Block();
            Pelbin::deallocate(account(), this, bytes, alignof(Block));
        }
    }
};

String::String(std::string_view text) : block_(text.empty() ? nullptr : Block::make(text)) {}

String::String(const String& other) noexcept : block_(other.block_) {
    if (block_ != nullptr) {
        block_->count.increment();
    }
}

String& String::operator=(const String& other) noexcept {
    String copy(other);
    std::swap(block_, copy.block_);
    return *this;
}

String& String::operator=(String&& other) noexcept {
    std::swap(block_, other.block_);
    return *this;
}

String::~String() {
    if (block_ != nullptr) {
        block_->release();
    }
}

std::string_view String::view() const noexcept {
    return block_ == nullptr ? std::string_view() : std::string_view(block_->text(), block_->size);
}

const char* String::c_str() const noexcept {
    return block_ == nullptr ? "" : block_->text();
}

} // namespace Orvo
