// SPDX-License-Identifier: Apache-2.0
// Tests of the tracked slab allocator's accounts.
#include "platform/pelbin/Pelbin.h"

#include "platform/zell/ActivityManager.h"
#include "platform/zell/FileDescriptor.h"
#include "tests/platform/Accounts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

namespace {

struct Small : Pelbin::Tracked<Small> {
    static constexpr const char* pelbinName = "Small";
    char content = 'x';
};

struct Large : Pelbin::Tracked<Large> {
    static constexpr const char* pelbinName = "Large";
    std::array<char, 5000> content{};
};

struct Refusing : Pelbin::Tracked<Refusing> {
    static constexpr const char* pelbinName = "Refusing";

    Refusing() { throw std::runtime_error("constructor"); }
};

struct Label {
    static constexpr const char* pelbinName = "container";
};

TEST(Pelbin, CountsObjectsAndBytesOfEachTypeByItself) {
    const auto one = std::make_unique<Small>();
    const auto two = std::make_unique<Small>();
    const auto large = std::make_unique<Large>();
    EXPECT_EQ(accountOf("Small").objects, 2U);
    EXPECT_EQ(accountOf("Small").bytes, 2 * sizeof(Small));
    EXPECT_EQ(accountOf("Large").objects, 1U);
    EXPECT_EQ(accountOf("Large").bytes, sizeof(Large));
}

TEST(Pelbin, ReturnsToZeroWithTheLastObject) {
    {
        std::vector<std::unique_ptr<Large>> many(40);
        for (auto& each : many) {
            each = std::make_unique<Large>();
        }
        EXPECT_EQ(accountOf("Large").objects, 40U);
    }
    EXPECT_EQ(accountOf("Large").objects, 0U);
    EXPECT_EQ(accountOf("Large").bytes, 0U);
}

TEST(Pelbin, TakesTheMemoryBackWhenTheConstructorThrows) {
    EXPECT_THROW(std::make_unique<Refusing>(), std::runtime_error);
    EXPECT_STREQ(accountOf("Refusing").typeName, "Refusing");
    EXPECT_EQ(accountOf("Refusing").objects, 0U);
    EXPECT_EQ(accountOf("Refusing").bytes, 0U);
}

TEST(Pelbin, OpensOneAccountForAName) {
    Pelbin::Account* const account = Pelbin::accountIs("opened twice");
    EXPECT_EQ(Pelbin::accountIs("opened twice"), account);
    const auto before = Pelbin::accounts();
    Pelbin::Account* const next = Pelbin::accountIs("opened later");
    const auto after = Pelbin::accounts();
    ASSERT_EQ(after.size(), before.size() + 1);
    EXPECT_STREQ(after.back().typeName, "opened later");
    EXPECT_NE(next, account);
}

TEST(Pelbin, SumsAllAccounts) {
    const Pelbin::Account before = Pelbin::total();
    const auto small = std::make_unique<Small>();
    const auto large = std::make_unique<Large>();
    EXPECT_EQ(Pelbin::total().objects, before.objects + 2);
    EXPECT_EQ(Pelbin::total().bytes, before.bytes + sizeof(Small) + sizeof(Large));
}

TEST(Pelbin, GivesMemoryOfTheAskedAlignment) {
    Pelbin::Account* const account = Pelbin::accountIs("aligned");
    for (const std::size_t alignment : {1U, 8U, 16U, 64U}) {
        void* const memory = Pelbin::allocate(account, 10, alignment);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % alignment, 0U);
        Pelbin::deallocate(account, memory, 10, alignment);
    }
    EXPECT_EQ(accountOf("aligned").objects, 0U);
}

// Fills blocks of every size with their own size, gives every other one back and fills new ones.
TEST(Pelbin, NeverGivesOutMemoryTwice) {
    Pelbin::Account* const account = Pelbin::accountIs("filled");
    constexpr std::size_t sizes = 1200;
    std::vector<unsigned char*> blocks(sizes + 1);
    const auto fill = [&](std::size_t size) {
        blocks[size] = static_cast<unsigned char*>(Pelbin::allocate(account, size, 1));
        std::fill_n(blocks[size], size, static_cast<unsigned char>(size));
    };
    for (int round = 0; round < 3; ++round) {
        for (std::size_t size = 1; size <= sizes; ++size) {
            if (blocks[size] == nullptr) {
                fill(size);
            }
        }
        for (std::size_t size = 1 + static_cast<std::size_t>(round) % 2; size <= sizes; size += 2) {
            Pelbin::deallocate(account, std::exchange(blocks[size], nullptr), size, 1);
        }
    }
    std::size_t left = 0;
    for (std::size_t size = 1; size <= sizes; ++size) {
        if (unsigned char* const block = blocks[size]) {
            EXPECT_EQ(std::count(block, block + size, static_cast<unsigned char>(size)),
                      static_cast<std::ptrdiff_t>(size));
            left += size;
            Pelbin::deallocate(account, block, size, 1);
        }
    }
    EXPECT_NE(left, 0U);
    EXPECT_EQ(accountOf("filled").bytes, 0U);
}

TEST(Pelbin, CountsTheNodesOfAContainer) {

    {
        const std::list<int, Pelbin::Allocator<int, Label>> numbers{1, 2, 3};
        EXPECT_EQ(accountOf("container").objects, numbers.size());
    }
    EXPECT_EQ(accountOf("container").objects, 0U);
    EXPECT_EQ(accountOf("container").bytes, 0U);
}

TEST(Pelbin, CountsTheFrameworksOwnNodes) {
    {
        const auto loop = Zell::ActivityFacility::activityManager();
        const auto descriptor = Orvo::makeNode<Zell::FileDescriptor>("name");
        EXPECT_EQ(accountOf("Zell::ActivityManager").objects, 1U);
        EXPECT_EQ(accountOf("Zell::FileDescriptor").objects, 1U);
    }
    EXPECT_EQ(accountOf("Zell::ActivityManager").bytes, 0U);
    EXPECT_EQ(accountOf("Zell::FileDescriptor").bytes, 0U);
}

} // namespace

} // namespace Vestrel::Tests
