// SPDX-License-Identifier: Apache-2.0
// Type tables and the registry of the process.
#include "platform/zell/TypeData.h"

#include "platform/zell/Assertion.h"
#include "platform/zell/Errors.h"

#include <map>
#include <utility>

namespace Zell {

namespace {

using Registry = std::map<std::string_view, const TypeData*>;

// Never destroyed: libraries leave it when they are unloaded, which may be after this one's own
// static destructors.
Registry& registry() {
    static Registry* const mine = new Registry;
    return *mine;
}

} // namespace

TypeData::TypeData(const char* name) : name_(name) {}

TypeData& TypeData::attributeIs(const AttributeData& attribute) {
    attributes_.push_back(attribute);
    return *this;
}

TypeData& TypeData::collectionIs(const CollectionData& collection) {
    collections_.push_back(collection);
    return *this;
}

TypeData& TypeData::operationsAre(std::vector<const char*> names) {
    operations_ = std::move(names);
    return *this;
}

TypeData& TypeData::constructIs(Construct function) {
    construct_ = function;
    return *this;
}

TypeData& TypeData::wholeValueIs(IsSet isSetTest, IsEq isEqTest) {
    isSet_ = isSetTest;
    isEq_ = isEqTest;
    return *this;
}

const AttributeData& TypeData::attribute(std::size_t index) const {
    if (index >= attributes_.size()) {
        throw AttributeError(std::string(name_) + " has no attribute " + std::to_string(index));
    }
    return attributes_[index];
}

Orvo::Value TypeData::value(const void* object, std::size_t index) const {
    return attribute(index).get(object);
}

void TypeData::valueIs(void* object, std::size_t index, const Orvo::Value& value) const {
    const AttributeData& target = attribute(index);
    if (target.set == nullptr) {
        throw AttributeError(std::string(name_) + "::" + target.name + " may not be written");
    }
    target.set(object, value);
}

Orvo::Value TypeData::construct(std::span<const Orvo::Value> arguments) const {
    if (construct_ == nullptr) {
        throw AttributeError(std::string(name_) + " cannot be constructed through reflection");
    }
    return construct_(arguments);
}

bool TypeData::isSet(const void* object) const {
    if (isSet_ == nullptr) {
        throw AttributeError(std::string(name_) + " has no is-set test");
    }
    return isSet_(object);
}

bool TypeData::isEq(const void* a, const void* b) const {
    if (isEq_ == nullptr) {
        throw AttributeError(std::string(name_) + " has no equality test");
    }
    return a == b || isEq_(a, b);
}

std::size_t TypeData::hash(const void* /*object*/) const {
    throw NonHashableTypeError(std::string(name_) + " is not hashable");
}

TypeRegistration::TypeRegistration(const TypeData& type) : type_(type) {
    const bool inserted = registry().emplace(type.name(), &type).second;
    ZELL_ASSERT("TypeRegistration", inserted);
}

TypeRegistration::~TypeRegistration() {
    registry().erase(type_.name());
}

const TypeData* registeredType(std::string_view name) {
    const auto found = registry().find(name);
    return found == registry().end() ? nullptr : found->second;
}

std::vector<const TypeData*> registeredTypes() {
    std::vector<const TypeData*> all;
    for (const auto& [name, type] : registry()) {
        all.push_back(type);
    }
    return all;
}

} // namespace Zell
