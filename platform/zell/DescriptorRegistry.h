// SPDX-License-Identifier: Apache-2.0
// The descriptors of the process, for the event loop to look through. Private to the framework.
#pragma once

#include <vector>

namespace Zell {

class FileDescriptor;

class DescriptorRegistry {
public:
    static void descriptorIs(FileDescriptor& descriptor) { all().push_back(&descriptor); }

    static void descriptorDel(FileDescriptor& descriptor) noexcept {
        std::erase(all(), &descriptor);
    }

    static std::vector<FileDescriptor*>& all() {
        static auto* const descriptors = new std::vector<FileDescriptor*>;
        return *descriptors;
    }
};

} // namespace Zell
