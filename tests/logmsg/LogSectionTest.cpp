// SPDX-License-Identifier: Apache-2.0
// Tests of the log descriptor section as it stands in the built library, and of the handles and
// calls beside it.
#include "logmsg/LogMessages.h"

#include <gtest/gtest.h>

#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

namespace Vestrel::Tests {

namespace {

using Header = ElfW(Ehdr);
using Section = ElfW(Shdr);
using Relocation = ElfW(Rela);
using Address = ElfW(Addr);
using SymbolEntry = ElfW(Sym);

// As it is written in the source; other texts as they are.
std::string demangled(const char* symbol) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(symbol, nullptr, nullptr, &status), &std::free);
    return status == 0 ? name.get() : symbol;
}

struct Symbol {
    std::string name;
    Address address;
};

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

    // Those of functions and objects that are defined in the library, the hidden ones included.
    std::vector<Symbol> symbols() const {
        std::vector<Symbol> found;
        for (const Section& table : sections_) {
            if (table.sh_type != SHT_SYMTAB) {
                continue;
            }
            const std::size_t names = sections_.at(table.sh_link).sh_offset;
            for (std::size_t i = 0; i < table.sh_size / table.sh_entsize; ++i) {
                const auto entry = at<SymbolEntry>(table.sh_offset + i * table.sh_entsize);
                if (entry.st_shndx != SHN_UNDEF) {
                    found.push_back(
                        {demangled(text(names + entry.st_name).c_str()), entry.st_value});
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

// Where the library stands once it is loaded.
Address loadedAt(const char* path) {
    void* const handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    link_map* map = nullptr;
    if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) == -1) {
        ADD_FAILURE() << dlerror();
        return 0;
    }
    return map->l_addr;
}

TEST_F(LogSection, HasAHandleToEachRecordInBothSourcesAsSoonAsTheLibraryIsLoaded) {
    ASSERT_EQ(found.size(), 1U);
    const Address base = loadedAt(VESTREL_SM_LIBRARY);
    ASSERT_NE(base, 0U);
    std::size_t sets = 0;
    for (const Symbol& symbol : library.symbols()) {
        if (symbol.name != "Vestrel::(anonymous namespace)::logHandles") {
            continue;
        }
        ++sets;
        static_assert(sizeof(LogHandles) == 5 * sizeof(Zell::LogHandle));
        const auto* const handles =
            reinterpret_cast<const Zell::LogHandle*>(base + symbol.address); // NOLINT
        const auto* const records =
            reinterpret_cast<const Zell::LogDescriptor*>(base + found[0].sh_addr); // NOLINT
        for (std::size_t i = 0; i < 5; ++i) {
            EXPECT_EQ(&handles[i].descriptor(), &records[i]) << i;
        }
    }
    EXPECT_EQ(sets, 2U);
}

TEST_F(LogSection, IsRaisedFromByTwoKindsOfCalls) {
    std::set<std::string> calls;
    for (const Symbol& symbol : library.symbols()) {
        if (symbol.name.starts_with("void Vestrel::log<")) {
            calls.insert(symbol.name.substr(0, symbol.name.find('(')));
        }
    }
    const std::string text = demangled(typeid(std::string).name());
    EXPECT_EQ(calls, (std::set<std::string>{"void Vestrel::log<Orvo::String, Orvo::String, char*>",
                                            "void Vestrel::log<Orvo::String, " + text + ", " +
                                                text + ", " + text + " >"}));
}

} // namespace

} // namespace Vestrel::Tests
