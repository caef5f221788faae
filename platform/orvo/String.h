// SPDX-License-Identifier: Apache-2.0
// The framework's immutable text value.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Threads.h"

#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace Orvo {

// Any bytes, NUL included; cheap to copy, since copies share one block. The text never changes
// after construction. Constructors that take text throw std::bad_alloc when memory is out; nothing
// else throws.
class VESTREL_EXPORT String {
public:
    String() noexcept = default;
    explicit(false) String(std::string_view text);

    explicit(false) String(const std::string& text) : String(std::string_view(text)) {}

    // Up to the first NUL; null is the empty string.
    explicit(false) String(const char* text)
        : String(text == nullptr ? std::string_view() : std::string_view(text)) {}

    String(const String& other) noexcept : block_(other.block_) {
        if (block_ != nullptr) {
            block_->count.increment();
        }
    }

    String(String&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}

    String& operator=(const String& other) noexcept {
        String copy(other);
        std::swap(block_, copy.block_);
        return *this;
    }

    String& operator=(String&& other) noexcept {
        std::swap(block_, other.block_);
        return *this;
    }

    ~String() {
        if (block_ != nullptr && block_->count.decrement() == 0) {
            Block::release(block_);
        }
    }

    bool empty() const noexcept { return block_ == nullptr; }

    std::size_t size() const noexcept { return view().size(); }

    // Valid as long as any copy of this string lives.
    std::string_view view() const noexcept {
        return block_ == nullptr ? std::string_view()
                                 : std::string_view(block_->text(), block_->size);
    }

    explicit(false) operator std::string_view() const noexcept { return view(); }

    // NUL-terminated; same lifetime as view().
    const char* c_str() const noexcept { return block_ == nullptr ? "" : block_->text(); }

    friend bool operator==(const String& a, const String& b) noexcept {
        return a.block_ == b.block_ || a.view() == b.view();
    }

    friend std::strong_ordering operator<=>(const String& a, const String& b) noexcept {
        return a.view() <=> b.view();
    }

    friend std::ostream& operator<<(std::ostream& out, const String& text) {
        return out << text.view();
    }

private:
    // The characters and a terminating NUL follow.
    struct VESTREL_EXPORT Block {
        RefCount count;
        std::size_t size;

        static void release(Block* block) noexcept;

        char* text() noexcept { return reinterpret_cast<char*>(this + 1); }
    };

    Block* block_ = nullptr;
};

} // namespace Orvo

template <>
struct std::hash<Orvo::String> {
    std::size_t operator()(const Orvo::String& text) const noexcept {
        return std::hash<std::string_view>()(text.view());
    }
};
