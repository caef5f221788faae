// SPDX-License-Identifier: Apache-2.0
// What the framework knows of a registered type: its attributes, collections, operations and how to
// build one. Status views, the text form of records and the trace of values all read it here.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/String.h"
#include "platform/orvo/Value.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace Zell {

struct AttributeData {
    const char* name;
    Orvo::Value (*get)(const void* object);
    void (*set)(void* object, const Orvo::Value& value); // null: refused through reflection
};

struct CollectionData {
    using Visitor = std::function<void(const Orvo::String& key, const Orvo::Value& value)>;

    const char* name;
    void (*forEach)(const void* object, const Visitor& visitor);
};

// Immutable once registered. Objects are passed as untyped pointers to the very type described.
class VESTREL_EXPORT TypeData {
public:
    using Construct = Orvo::Value (*)(std::span<const Orvo::Value> arguments);
    using IsSet = bool (*)(const void* object);
    using IsEq = bool (*)(const void* a, const void* b);

    explicit TypeData(const char* name);
    TypeData(const TypeData&) = delete;
    TypeData& operator=(const TypeData&) = delete;

    TypeData& attributeIs(const AttributeData& attribute);
    TypeData& collectionIs(const CollectionData& collection);
    TypeData& operationsAre(std::vector<const char*> names);
    TypeData& constructIs(Construct function);
    TypeData& wholeValueIs(IsSet isSetTest, IsEq isEqTest);

    const char* name() const noexcept { return name_; }

    const std::vector<AttributeData>& attributes() const noexcept { return attributes_; }

    const std::vector<CollectionData>& collections() const noexcept { return collections_; }

    const std::vector<const char*>& operations() const noexcept { return operations_; }

    // Both throw AttributeError for an index that the type does not have; valueIs also for an
    // attribute that may not be written.
    Orvo::Value value(const void* object, std::size_t index) const;
    void valueIs(void* object, std::size_t index, const Orvo::Value& value) const;

    // Throws AttributeError when the type cannot be built from these arguments.
    Orvo::Value construct(std::span<const Orvo::Value> arguments) const;

    // Throw AttributeError for a type without whole-value operations.
    bool isSet(const void* object) const;
    bool isEq(const void* a, const void* b) const;

    // Always throws NonHashableTypeError: no registered type has a hash.
    [[noreturn]] std::size_t hash(const void* object) const;

private:
    const AttributeData& attribute(std::size_t index) const;

    const char* name_;
    std::vector<AttributeData> attributes_;
    std::vector<CollectionData> collections_;
    std::vector<const char*> operations_;
    Construct construct_ = nullptr;
    IsSet isSet_ = nullptr;
    IsEq isEq_ = nullptr;
};

// Makes a type known by its name for as long as the registration lives: a static object of the
// library that defines the type. A second registration of a name is a fatal assertion.
class VESTREL_EXPORT TypeRegistration {
public:
    explicit TypeRegistration(const TypeData& type);
    TypeRegistration(const TypeRegistration&) = delete;
    TypeRegistration& operator=(const TypeRegistration&) = delete;
    ~TypeRegistration();

private:
    const TypeData& type_;
};

// Null when no such type is registered.
VESTREL_EXPORT const TypeData* registeredType(std::string_view name);

// In the order of their names.
VESTREL_EXPORT std::vector<const TypeData*> registeredTypes();

namespace Impl {

template <auto Member>
struct MemberAccess;

template <class Owner, class Field, Field Owner::*Member>
struct MemberAccess<Member> {
    static Orvo::Value get(const void* object) {
        const Field& field = static_cast<const Owner*>(object)->*Member;
        if constexpr (std::is_integral_v<Field>) {
            return Orvo::Value(std::int64_t{field});
        } else {
            return Orvo::Value(field);
        }
    }

    static void set(void* object, const Orvo::Value& value) {
        Field& field = static_cast<Owner*>(object)->*Member;
        if constexpr (std::is_integral_v<Field>) {
            field = static_cast<Field>(std::get<std::int64_t>(value));
        } else {
            field = std::get<Field>(value);
        }
    }
};

} // namespace Impl

// The table row of a data member that may be written through reflection.
template <auto Member>
constexpr AttributeData attribute(const char* name) {
    return {name, &Impl::MemberAccess<Member>::get, &Impl::MemberAccess<Member>::set};
}

// The table row of a data member that may only be read.
template <auto Member>
constexpr AttributeData keyAttribute(const char* name) {
    return {name, &Impl::MemberAccess<Member>::get, nullptr};
}

// Wraps a copy of a record of a registered type.
template <class Type>
Orvo::Value recordValue(const TypeData& type, const Type& record) {
    return Orvo::Record{&type, std::make_shared<const Type>(record)};
}

} // namespace Zell
