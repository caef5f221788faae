// SPDX-License-Identifier: Apache-2.0
// What is known of one keyring: its keys, and which certificate files carry which description.
#pragma once

#include "keymodel/FileSetPerDescription.h"
#include "keymodel/IntegrityKey.h"
#include "platform/Export.h"
#include "platform/orvo/Node.h"
#include "platform/orvo/Ptr.h"
#include "platform/orvo/String.h"
#include "platform/pelbin/Pelbin.h"
#include "platform/zell/HashMap2018.h"

namespace Vestrel {

// Three maps that their user keeps in step: `key` mirrors the kernel keyring; `fileToDescription`
// and `descriptionToFile` are each other's inverse.
class VESTREL_EXPORT IntegrityKeyColl final : public Orvo::Node,
                                              public Pelbin::Tracked<IntegrityKeyColl> {
public:
    static constexpr const char* pelbinName = "Vestrel::IntegrityKeyColl";

    struct HN_Key {
        static constexpr const char* pelbinName = "Vestrel::IntegrityKeyColl::key";

        struct KeyFunktor {
            int operator()(const IntegrityKey& key) const noexcept { return key.serial; }
        };
    };

    struct HN_DescriptionToFile {
        static constexpr const char* pelbinName = "Vestrel::IntegrityKeyColl::descriptionToFile";
    };

    struct HN_FileToDescription {
        static constexpr const char* pelbinName = "Vestrel::IntegrityKeyColl::fileToDescription";
    };

    using KeyMap = Zell::HashMap2018<HN_Key, int, IntegrityKey>;
    using DescriptionToFileMap =
        Zell::HashMap2018<HN_DescriptionToFile, Orvo::String, Orvo::Ptr<FileSetPerDescription>>;
    using FileToDescriptionMap =
        Zell::HashMap2018<HN_FileToDescription, Orvo::String, Orvo::String>;

    const KeyMap& key() const noexcept { return key_; }

    // The record in place, or null.
    const IntegrityKey* key(int serial) const { return key_.find(serial); }

    // Inserts under the key's serial, or replaces the record of that serial.
    void keyIs(const IntegrityKey& key) { key_.valueIs(key); }

    // Removes and returns the record, or returns the default one.
    IntegrityKey keyDel(int serial) { return key_.del(serial); }

    const FileToDescriptionMap& fileToDescription() const noexcept { return fileToDescription_; }

    // Empty when the file is not mapped.
    Orvo::String fileToDescription(const Orvo::String& file) const {
        return fileToDescription_.value(file);
    }

    bool fileToDescriptionHas(const Orvo::String& file) const {
        return fileToDescription_.has(file);
    }

    void fileToDescriptionIs(const Orvo::String& file, const Orvo::String& description) {
        fileToDescription_.valueIs(file, description);
    }

    void fileToDescriptionDel(const Orvo::String& file) { fileToDescription_.del(file); }

    const DescriptionToFileMap& descriptionToFile() const noexcept { return descriptionToFile_; }

    // Null when no file carries the description.
    Orvo::Ptr<FileSetPerDescription> descriptionToFile(const Orvo::String& description) const {
        return descriptionToFile_.value(description);
    }

    bool descriptionToFileHas(const Orvo::String& description) const {
        return descriptionToFile_.has(description);
    }

    // The description's file set, made when there is none.
    Orvo::Ptr<FileSetPerDescription> descriptionToFileIs(const Orvo::String& description);

    void descriptionToFileDel(const Orvo::String& description) {
        descriptionToFile_.del(description);
    }

    const Zell::TypeData& typeData() const override;

private:
    KeyMap key_;
    DescriptionToFileMap descriptionToFile_;
    FileToDescriptionMap fileToDescription_;
};

} // namespace Vestrel
