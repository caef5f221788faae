// SPDX-License-Identifier: Apache-2.0
// Type table of a keyring's collection, and the making of its file sets.
#include "keymodel/IntegrityKeyColl.h"

#include "platform/zell/TypeData.h"

#include <string>

namespace Vestrel {

namespace {

using Visitor = Zell::CollectionData::Visitor;

const IntegrityKeyColl& coll(const void* object) {
    return *static_cast<const IntegrityKeyColl*>(object);
}

void forEachKey(const void* object, const Visitor& visitor) {
    for (auto key = coll(object).key().iterator(); key; ++key) {
        visitor(std::to_string(key.key()), Zell::recordValue(IntegrityKey::typeData(), *key));
    }
}

void forEachDescription(const void* object, const Visitor& visitor) {
    for (auto files = coll(object).descriptionToFile().iterator(); files; ++files) {
        visitor(files.key(), Orvo::Ptr<Orvo::Node>(*files));
    }
}

void forEachFile(const void* object, const Visitor& visitor) {
    for (auto file = coll(object).fileToDescription().iterator(); file; ++file) {
        visitor(file.key(), *file);
    }
}

const Zell::TypeData& keyCollType() {
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::IntegrityKeyColl"))
            .collectionIs({"key", &forEachKey})
            .collectionIs({"descriptionToFile", &forEachDescription})
            .collectionIs({"fileToDescription", &forEachFile})
            .operationsAre({"keyIs", "keyDel", "descriptionToFileIs", "descriptionToFileDel",
                            "fileToDescriptionIs", "fileToDescriptionDel"});
    return type;
}

const Zell::TypeRegistration registration(keyCollType());

} // namespace

Orvo::Ptr<FileSetPerDescription>
IntegrityKeyColl::descriptionToFileIs(const Orvo::String& description) {
    if (const auto* const present = descriptionToFile_.find(description)) {
        return *present;
    }
    auto files = Orvo::makeNode<FileSetPerDescription>();
    descriptionToFile_.valueIs(description, files);
    return files;
}

const Zell::TypeData& IntegrityKeyColl::typeData() const {
    return keyCollType();
}

} // namespace Vestrel
