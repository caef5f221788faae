// SPDX-License-Identifier: Apache-2.0
// The certificate files that carry one key description.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Node.h"
#include "platform/orvo/String.h"
#include "platform/pelbin/Pelbin.h"

#include <cstddef>
#include <set>

namespace Vestrel {

class VESTREL_EXPORT FileSetPerDescription final : public Orvo::Node,
                                                   public Pelbin::Tracked<FileSetPerDescription> {
public:
    static constexpr const char* pelbinName = "Vestrel::FileSetPerDescription";

    struct HN_FilePath {
        static constexpr const char* pelbinName = "Vestrel::FileSetPerDescription::filePath";
    };

    using FilePaths =
        std::set<Orvo::String, std::less<>, Pelbin::Allocator<Orvo::String, HN_FilePath>>;

    // Adding a path twice keeps one member; removing an absent one does nothing.
    void filePathIs(const Orvo::String& path) { filePath_.insert(path); }

    void filePathDel(const Orvo::String& path) { filePath_.erase(path); }

    bool filePathHas(const Orvo::String& path) const { return filePath_.contains(path); }

    std::size_t filePathCount() const noexcept { return filePath_.size(); }

    const FilePaths& filePath() const noexcept { return filePath_; }

    const Zell::TypeData& typeData() const override;

private:
    FilePaths filePath_;
};

} // namespace Vestrel
