// SPDX-License-Identifier: Apache-2.0
// The keyed collection behind every collection attribute.
#pragma once

#include "platform/pelbin/Pelbin.h"
#include "platform/zell/Assertion.h"

#include <functional>
#include <unordered_map>
#include <utility>

namespace Zell {

// Members in the order of their insertion, found by key. `Tag` names the collection: its
// `pelbinName` is the account of the entries, and where a member's key is derived from its value
// its `KeyFunktor` does so. Single-threaded, like the nodes that embed it.
//
// Deleting a member, also the one that an iterator stands on, and inserting leave every iterator
// usable.
template <class Tag, class Key, class Value>
class HashMap2018 {
    static constexpr bool derivesKey = requires { typename Tag::KeyFunktor; };

    struct Entry {
        const Key* key = nullptr; // the index's own copy
        Value value;
        Entry* previous = nullptr;
        Entry* next = nullptr;

        explicit Entry(const Value& initial) : value(initial) {}
    };

public:
    // Walks the members from first to last. Reading or stepping while it stands on no member is the
    // fatal assertion "iter_", with one exception: when the member it stood on was deleted, the
    // next step goes to the member that followed.
    class Iterator {
    public:
        Iterator(const Iterator&) = delete;
        Iterator& operator=(const Iterator&) = delete;

        ~Iterator() {
            if (map_ != nullptr) {
                map_->leave(*this);
            }
        }

        // Whether it stands on a member.
        explicit operator bool() const noexcept { return iter_ != nullptr; }

        const Key& key() const {
            ZELL_ASSERT("HashMap2018", iter_);
            return *iter_->key;
        }

        const Value& operator*() const {
            ZELL_ASSERT("HashMap2018", iter_);
            return iter_->value;
        }

        const Value* operator->() const { return &**this; }

        Iterator& operator++() {
            if (deleted_) {
                deleted_ = false;
                iter_ = std::exchange(next_, nullptr);
                return *this;
            }
            ZELL_ASSERT("HashMap2018", iter_);
            iter_ = iter_->next;
            return *this;
        }

    private:
        friend class HashMap2018;

        explicit Iterator(const HashMap2018& map) : map_(&map), iter_(map.first_) {
            map.enter(*this);
        }

        void entryGoes(const Entry* entry) noexcept {
            if (deleted_ && next_ == entry) {
                next_ = entry->next;
            } else if (!deleted_ && iter_ == entry) {
                deleted_ = true;
                next_ = entry->next;
                iter_ = nullptr;
            }
        }

        void mapGoes() noexcept {
            map_ = nullptr;
            iter_ = nullptr;
            next_ = nullptr;
            deleted_ = false;
        }

        const HashMap2018* map_;
        const Entry* iter_;
        const Entry* next_ = nullptr; // where the next step goes while deleted_
        bool deleted_ = false;
        Iterator* chained_ = nullptr; // the next iterator of the same map
    };

    HashMap2018() = default;
    HashMap2018(const HashMap2018&) = delete;
    HashMap2018& operator=(const HashMap2018&) = delete;

    ~HashMap2018() {
        while (iterators_ != nullptr) {
            Iterator& iterator = *iterators_;
            leave(iterator);
            iterator.mapGoes();
        }
    }

    std::size_t size() const noexcept { return index_.size(); }

    bool empty() const noexcept { return index_.empty(); }

    bool has(const Key& key) const { return index_.contains(key); }

    Iterator iterator() const { return Iterator(*this); }

    // The member, in place, or null.
    const Value* find(const Key& key) const {
        const auto found = index_.find(key);
        return found == index_.end() ? nullptr : &found->second.value;
    }

    // A copy of the member, or a default value.
    Value value(const Key& key) const {
        const Value* const found = find(key);
        return found == nullptr ? Value() : *found;
    }

    // Inserts, or replaces the member of the same key, which keeps its place.
    void valueIs(const Key& key, const Value& value) {
        if constexpr (derivesKey) {
            ZELL_ASSERT_TEXT("HashMap2018", key == typename Tag::KeyFunktor()(value),
                             "fwkKey() == KeyFunktor()( _value )");
        }
        const auto [place, inserted] = index_.try_emplace(key, value);
        if (inserted) {
            append(place->second, place->first);
        } else {
            place->second.value = value;
        }
    }

    void valueIs(const Value& value) requires derivesKey {
        valueIs(typename Tag::KeyFunktor()(value), value);
    }

    // Removes the member and returns it, or returns a default value when there is none.
    Value del(const Key& key) {
        const auto found = index_.find(key);
        if (found == index_.end()) {
            return Value();
        }
        unchain(found->second);
        Value removed = std::move(found->second.value);
        index_.erase(found);
        return removed;
    }

    void delAll() {
        while (first_ != nullptr) {
            del(Key(*first_->key));
        }
    }

private:
    using Index = std::unordered_map<Key, Entry, std::hash<Key>, std::equal_to<Key>,
                                     Pelbin::Allocator<std::pair<const Key, Entry>, Tag>>;

    void append(Entry& entry, const Key& key) noexcept {
        entry.key = &key;
        entry.previous = last_;
        (last_ == nullptr ? first_ : last_->next) = &entry;
        last_ = &entry;
    }

    void unchain(Entry& entry) noexcept {
        for (Iterator* each = iterators_; each != nullptr; each = each->chained_) {
            each->entryGoes(&entry);
        }
        (entry.previous == nullptr ? first_ : entry.previous->next) = entry.next;
        (entry.next == nullptr ? last_ : entry.next->previous) = entry.previous;
    }

    // GCC cannot see that every iterator leaves in its destructor.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
    void enter(Iterator& iterator) const noexcept {
        iterator.chained_ = iterators_;
        iterators_ = &iterator;
    }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

    void leave(Iterator& iterator) const noexcept {
        Iterator** link = &iterators_;
        while (*link != &iterator) {
            link = &(*link)->chained_;
        }
        *link = iterator.chained_;
    }

    Index index_;
    Entry* first_ = nullptr;
    Entry* last_ = nullptr;
    mutable Iterator* iterators_ = nullptr;
};

} // namespace Zell
