// SPDX-License-Identifier: Apache-2.0
// Tests of the log descriptor section as it stands in the built library.
#include "platform/zell/LogDescriptor.h"

#include <gtest/gtest.h>

#include <elf.h>
#include <link.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

using Header = ElfW(Ehdr);
using Section = ElfW(Shdr);
using Relocation = ElfW(Rela);
using Address = ElfW(Addr);

class Library {
public:
    explicit Library(const char* path) {
        std::ifstream file(path, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(file), {});
        const auto header = at<Header>(0);
        for (std::size_t i = 0; i < header.e_shnum; ++i) {
            sections_.push_back(at<Section>(header.e_shoff + i * header.e_shentsize));
        }
        names_ = sections_.at(header.e_shstrndx).sh_offset;
    }

    std::vector<Section> sections(const std::string& name) const {
        std::vector<Section> found;
        for (const Section& section : sections_) {
            if (text(names_ + section.sh_name) == name) {
                found.push_back(section);
            }
        }
        return found;
    }

    // What each word of the section points to, by its place in the section.
    std::map<std::size_t, std::string> texts(const Section& target) const {
        std::map<std::size_t, std::string> found;
        for (const Section& section : sections_) {
            for (std::size_t i = 0;
                 section.sh_type == SHT_RELA && i < section.sh_size / section.sh_entsize; ++i) {
                const auto entry = at<Relocation>(section.sh_offset + i * section.sh_entsize);
                if (entry.r_offset - target.sh_addr < target.sh_size) {
                    found.emplace(entry.r_offset - target.sh_addr,
                                  text(offsetOf(static_cast<Address>(entry.r_addend))));
                }
            }
        }
        return found;
    }

    template <class Type>
    Type at(std::size_t offset) const {
        Type value{};
        std::memcpy(&value, &bytes_.at(offset + sizeof(Type) - 1) - (sizeof(Type) - 1),
                    sizeof(Type));
        return value;
    }

private:
    std::string text(std::size_t offset) const { return &bytes_.at(offset); }

    std::size_t offsetOf(Address address) const {
        for (const Section& section : sections_) {
            if ((section.sh_flags & SHF_ALLOC) != 0 && section.sh_type != SHT_NOBITS &&
                address - section.sh_addr < section.sh_size) {
                return section.sh_offset + (address - section.sh_addr);
            }
        }
        return bytes_.size(); // refused by text()
    }

    std::vector<char> bytes_;
    std::vector<Section> sections_;
    std::size_t names_ = 0;
};

class LogSection : public testing::Test {
protected:
    const Library library{VESTREL_SM_LIBRARY};
    const std::vector<Section> found = library.sections(".norvale_logmsg");
};

TEST_F(LogSection, HoldsFiveRecordsBackToBack) {
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].sh_size, 5 * sizeof(Zell::LogDescriptor));
    EXPECT_NE(found[0].sh_flags & SHF_ALLOC, 0U);
    const auto texts = library.texts(found[0]);
    const std::array<const char*, 5> names{"VESTREL_INTEGRITY_LOAD_KEY_FAIL", "VESTREL_INTEGRITY",
                                           "VESTREL_WARNING", "MEASUREDBOOT_PCR_CONFIG_WARNING",
                                           "BOOT_LOADER_DEPRECATION_WARNING"};
    ASSERT_EQ(texts.size(), 4 * names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::size_t record = i * sizeof(Zell::LogDescriptor);
        EXPECT_EQ(texts.at(record), names[i]);
    }
    EXPECT_EQ(texts.at(offsetof(Zell::LogDescriptor, recommendedAction)), "\x01");
}

TEST_F(LogSection, HoldsSeverityAndAReservedWordInEachRecord) {
    ASSERT_EQ(found.size(), 1U);
    for (std::size_t i = 0; i < 5; ++i) {
        const std::size_t record = found[0].sh_offset + i * sizeof(Zell::LogDescriptor);
        EXPECT_EQ(library.at<int>(record + offsetof(Zell::LogDescriptor, severity)), 4);
        EXPECT_EQ(library.at<unsigned>(record + offsetof(Zell::LogDescriptor, reserved)), 0U);
    }
}

} // namespace

} // namespace Vestrel::Tests
