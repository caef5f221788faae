// SPDX-License-Identifier: Apache-2.0
// The counted pointer to a node.
#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <utility>

namespace Orvo {

// Holds one reference of a node's intrusive count; null by default. Copies take a reference of
// their own. Used from the thread that owns the node unless the process is threaded (Threads.h).
template <class Type>
class Ptr {
public:
    constexpr Ptr() noexcept = default;

    constexpr explicit(false) Ptr(std::nullptr_t) noexcept {}

    // Takes a further reference.
    explicit(false) Ptr(Type* node) noexcept : node_(node) { acquire(); }

    // Takes over the reference that a node is constructed with.
    static Ptr adopt(Type* node) noexcept {
        Ptr holder;
        holder.node_ = node;
        return holder;
    }

    Ptr(const Ptr& other) noexcept : node_(other.node_) { acquire(); }

    Ptr(Ptr&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}

    template <class Other>
    requires std::convertible_to<Other*, Type*>

    explicit(false) Ptr(const Ptr<Other>& other) noexcept : Ptr(other.get()) {}

    Ptr& operator=(Ptr other) noexcept {
        std::swap(node_, other.node_);
        return *this;
    }

    ~Ptr() { release(); }

    Type* get() const noexcept { return node_; }

    Type* operator->() const noexcept { return node_; }

    Type& operator*() const noexcept { return *node_; }

    explicit operator bool() const noexcept { return node_ != nullptr; }

    friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.node_ == b.node_; }

    friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.node_ == nullptr; }

private:
    void acquire() noexcept {
        if (node_ != nullptr) {
            node_->refIs();
        }
    }

    void release() noexcept {
        if (node_ != nullptr) {
            node_->refDel();
        }
    }

    Type* node_ = nullptr;
};

// Allocates a node and returns its first reference.
template <class Type, class... Args>
Ptr<Type> makeNode(Args&&... args) {
    return Ptr<Type>::adopt(new Type(std::forward<Args>(args)...));
}

} // namespace Orvo

template <class Type>
struct std::hash<Orvo::Ptr<Type>> {
    std::size_t operator()(const Orvo::Ptr<Type>& pointer) const noexcept {
        return std::hash<Type*>()(pointer.get());
    }
};
