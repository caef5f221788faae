// SPDX-License-Identifier: Apache-2.0
// Tests the collection of all keyrings.
#include "keymodel/IntegrityKeyringColl.h"

#include "platform/zell/TypeData.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

class KeyringColl : public testing::Test {
protected:
    Orvo::Ptr<IntegrityKeyringColl> coll = Orvo::makeNode<IntegrityKeyringColl>();
};

TEST_F(KeyringColl, LooksUpNullForAnUnknownNameAndMakesNothing) {
    EXPECT_EQ(coll->keyring(".ima"), nullptr);
    EXPECT_EQ(coll->keyringCount(), 0U);
}

TEST_F(KeyringColl, MakesAnEmptyKeyCollectionForANewName) {
    const auto made = coll->keyringIs(".ima");
    ASSERT_TRUE(made);
    EXPECT_TRUE(made->key().empty());
    EXPECT_TRUE(made->fileToDescription().empty());
    EXPECT_TRUE(made->descriptionToFile().empty());
    EXPECT_EQ(coll->keyring(".ima"), made);
}

TEST_F(KeyringColl, ReturnsThePresentCollectionWithItsContent) {
    const auto made = coll->keyringIs(".ima");
    made->keyIs({7, "d", "asymmetric"});
    EXPECT_EQ(coll->keyringIs(".ima"), made);
    EXPECT_EQ(coll->keyring(".ima")->key().size(), 1U);
    EXPECT_EQ(coll->keyringCount(), 1U);
}

TEST_F(KeyringColl, TellsNamesApartExactly) {
    EXPECT_NE(coll->keyringIs(".ima"), coll->keyringIs(".IMA"));
    EXPECT_EQ(coll->keyring("ima"), nullptr);
}

TEST_F(KeyringColl, CountsItsMembersAsTheyAreMade) {
    for (std::size_t i = 1; i <= 4; ++i) {
        coll->keyringIs(Orvo::String("." + std::to_string(i)));
        EXPECT_EQ(coll->keyringCount(), i);
    }
}

TEST_F(KeyringColl, DelAllEmptiesTheMapAndLeavesCollectionsToWhoeverHoldsThem) {
    const auto held = coll->keyringIs(".ima");
    held->keyIs({7, "d", "asymmetric"});
    coll->keyringIs(".machine");
    coll->keyringDelAll();
    EXPECT_EQ(coll->keyringCount(), 0U);
    EXPECT_EQ(coll->keyring(".ima"), nullptr);
    EXPECT_EQ(held->refCount(), 1U);
    EXPECT_EQ(held->key().size(), 1U);
    EXPECT_NE(coll->keyringIs(".ima"), held);
}

TEST_F(KeyringColl, DelAllOfAnEmptyCollectionDoesNothing) {
    coll->keyringDelAll();
    EXPECT_EQ(coll->keyringCount(), 0U);
}

TEST_F(KeyringColl, ShowsItsKeyringsThroughReflection) {
    const auto ima = coll->keyringIs(".ima");
    coll->keyringIs(".machine");
    const Zell::TypeData& type = coll->typeData();
    EXPECT_EQ(&type, Zell::registeredType("Vestrel::IntegrityKeyringColl"));
    ASSERT_EQ(type.collections().size(), 1U);
    EXPECT_STREQ(type.collections()[0].name, "keyring");
    const std::vector<std::string> operations(type.operations().begin(), type.operations().end());
    EXPECT_EQ(operations, (std::vector<std::string>{"keyringIs", "keyringDelAll"}));
    std::vector<std::string> names;
    type.collections()[0].forEach(
        coll.get(), [&](const Orvo::String& name, const Orvo::Value& value) {
            names.emplace_back(name.view());
            EXPECT_EQ(std::get<Orvo::Ptr<Orvo::Node>>(value).get(), coll->keyring(name).get());
        });
    EXPECT_EQ(names, (std::vector<std::string>{".ima", ".machine"}));
}

} // namespace

} // namespace Vestrel::Tests
