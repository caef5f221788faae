// SPDX-License-Identifier: Apache-2.0
// Comparison, type table and text form of a key record.
#include "keymodel/IntegrityKey.h"

#include "platform/zell/AttributeText.h"

namespace Vestrel {

namespace {

const IntegrityKey noKey;

bool isSet(const void* key) {
    return !IntegrityKey::isEq(key, &noKey);
}

const Zell::TypeRegistration registration(IntegrityKey::typeData());

} // namespace

bool IntegrityKey::isEq(const void* a, const void* b) {
    const auto& left = *static_cast<const IntegrityKey*>(a);
    const auto& right = *static_cast<const IntegrityKey*>(b);
    return left.serial == right.serial && left.description == right.description &&
           left.type == right.type;
}

const Zell::TypeData& IntegrityKey::typeData() {
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::IntegrityKey"))
            .attributeIs(Zell::keyAttribute<&IntegrityKey::serial>("serial"))
            .attributeIs(Zell::attribute<&IntegrityKey::description>("description"))
            .attributeIs(Zell::attribute<&IntegrityKey::type>("type"))
            .wholeValueIs(&isSet, &IntegrityKey::isEq);
    return type;
}

std::ostream& operator<<(std::ostream& out, const IntegrityKey& key) {
    return Zell::writeRecord(out, IntegrityKey::typeData(), &key);
}

} // namespace Vestrel
