// SPDX-License-Identifier: Apache-2.0
// Type table of the keyring collection, and the making of its members.
#include "keymodel/IntegrityKeyringColl.h"

#include "platform/zell/TypeData.h"

namespace Vestrel {

namespace {

void forEachKeyring(const void* object, const Zell::CollectionData::Visitor& visitor) {
    const auto& keyrings = static_cast<const IntegrityKeyringColl*>(object)->keyring();
    for (auto keyring = keyrings.iterator(); keyring; ++keyring) {
        visitor(keyring.key(), Orvo::Ptr<Orvo::Node>(*keyring));
    }
}

const Zell::TypeData& keyringCollType() {
    static const Zell::TypeData& type = (*new Zell::TypeData("Vestrel::IntegrityKeyringColl"))
                                            .collectionIs({"keyring", &forEachKeyring})
                                            .operationsAre({"keyringIs", "keyringDelAll"});
    return type;
}

const Zell::TypeRegistration registration(keyringCollType());

} // namespace

Orvo::Ptr<IntegrityKeyColl> IntegrityKeyringColl::keyringIs(const Orvo::String& name) {
    if (const auto* const present = keyring_.find(name)) {
        return *present;
    }
    auto keys = Orvo::makeNode<IntegrityKeyColl>();
    keyring_.valueIs(name, keys);
    return keys;
}

const Zell::TypeData& IntegrityKeyringColl::typeData() const {
    return keyringCollType();
}

} // namespace Vestrel
