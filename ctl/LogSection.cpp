// SPDX-License-Identifier: Apache-2.0
// Finds the section through the library's file, and its records, relocated, in memory.
#include "ctl/LogSection.h"

#include <elf.h>
#include <link.h>

#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel {

namespace {

using Header = ElfW(Ehdr);
using Section = ElfW(Shdr);

constexpr std::string_view libraryName = "/libVestrelSm.so";
constexpr std::string_view sectionName = ".norvale_logmsg";

struct LoadedLibrary {
    std::string path;
    const char* base = nullptr;
};

std::optional<LoadedLibrary> loadedLibrary() {
    std::optional<LoadedLibrary> found;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* result) {
            if (std::string_view(info->dlpi_name).find(libraryName) == std::string_view::npos) {
                return 0;
            }
            *static_cast<std::optional<LoadedLibrary>*>(result) = LoadedLibrary{
                info->dlpi_name,
                reinterpret_cast<const char*>(info->dlpi_addr)}; // NOLINT: where it is mapped
            return 1;
        },
        &found);
    return found;
}

// Reading beyond the file's end is an exception.
class ElfFile {
public:
    explicit ElfFile(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(file), {});
    }

    template <class Type>
    Type at(std::size_t offset) const {
        if (offset > bytes_.size() || bytes_.size() - offset < sizeof(Type)) {
            throw std::runtime_error("the file of libVestrelSm is cut short");
        }
        Type value{};
        std::memcpy(&value, bytes_.data() + offset, sizeof value);
        return value;
    }

    bool hasText(std::size_t offset, std::string_view text) const {
        return offset < bytes_.size() && bytes_.size() - offset > text.size() &&
               std::string_view(bytes_.data() + offset, text.size() + 1) ==
                   std::string_view(std::string(text) + '\0');
    }

private:
    std::vector<char> bytes_;
};

std::optional<Section> sectionOf(const ElfFile& file) {
    const auto header = file.at<Header>(0);
    const auto section = [&](std::size_t index) {
        return file.at<Section>(header.e_shoff + index * header.e_shentsize);
    };
    const std::size_t names = section(header.e_shstrndx).sh_offset;
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
        if (const Section candidate = section(i);
            file.hasText(names + candidate.sh_name, sectionName)) {
            return candidate;
        }
    }
    return std::nullopt;
}

} // namespace

std::span<const Zell::LogDescriptor> logSection() {
    const auto library = loadedLibrary();
    if (!library) {
        throw std::runtime_error("libVestrelSm is not loaded");
    }
    const auto section = sectionOf(ElfFile(library->path));
    if (!section) {
        throw std::runtime_error(library->path + " has no section " + std::string(sectionName));
    }
    const void* const records = library->base + section->sh_addr;
    return {static_cast<const Zell::LogDescriptor*>(records),
            section->sh_size / sizeof(Zell::LogDescriptor)};
}

} // namespace Vestrel
