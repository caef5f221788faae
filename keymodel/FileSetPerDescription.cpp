// SPDX-License-Identifier: Apache-2.0
// Type table of the file set.
#include "keymodel/FileSetPerDescription.h"

#include "platform/zell/TypeData.h"

namespace Vestrel {

namespace {

void forEachFilePath(const void* object, const Zell::CollectionData::Visitor& visitor) {
    for (const Orvo::String& path : static_cast<const FileSetPerDescription*>(object)->filePath()) {
        visitor(path, path);
    }
}

const Zell::TypeData& fileSetType() {
    static const Zell::TypeData& type = (*new Zell::TypeData("Vestrel::FileSetPerDescription"))
                                            .collectionIs({"filePath", &forEachFilePath})
                                            .operationsAre({"filePathIs", "filePathDel"});
    return type;
}

const Zell::TypeRegistration registration(fileSetType());

} // namespace

const Zell::TypeData& FileSetPerDescription::typeData() const {
    return fileSetType();
}

} // namespace Vestrel
