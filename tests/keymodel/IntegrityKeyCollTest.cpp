// SPDX-License-Identifier: Apache-2.0
// Tests the three maps of one keyring.
#include "keymodel/IntegrityKeyColl.h"

#include "platform/pelbin/Pelbin.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

class KeyColl : public testing::Test {
protected:
    std::vector<int> serials() const {
        std::vector<int> all;
        for (auto key = coll->key().iterator(); key; ++key) {
            all.push_back(key->serial);
        }
        return all;
    }

    // A key of that serial, with its own description.
    void add(int serial) {
        coll->keyIs({serial, Orvo::String("d" + std::to_string(serial)), "asymmetric"});
    }

    Orvo::Ptr<IntegrityKeyColl> coll = Orvo::makeNode<IntegrityKeyColl>();
};

using KeyCollDeathTest = KeyColl;

TEST_F(KeyColl, FindsAKeyUnderItsOwnSerial) {
    coll->keyIs({42, "d", "asymmetric"});
    const IntegrityKey* const found = coll->key(42);
    ASSERT_NE(found, nullptr);
    const IntegrityKey expected{42, "d", "asymmetric"};
    EXPECT_TRUE(IntegrityKey::isEq(found, &expected));
    EXPECT_EQ(coll->key(41), nullptr);
}

TEST_F(KeyColl, ReplacesTheRecordOfTheSameSerial) {
    coll->keyIs({42, "old", "asymmetric"});
    add(7);
    coll->keyIs({42, "new", "user"});
    EXPECT_EQ(coll->key().size(), 2U);
    EXPECT_EQ(coll->key(42)->description, "new");
    EXPECT_EQ(coll->key(42)->type, "user");
}

TEST_F(KeyColl, KeepsKeysOfOneDescriptionUnderTheirSerials) {
    coll->keyIs({1, "same", "asymmetric"});
    coll->keyIs({2, "same", "asymmetric"});
    EXPECT_EQ(coll->key().size(), 2U);
}

TEST_F(KeyColl, KeyDelReturnsTheRecordThatItRemoves) {
    add(1);
    add(2);
    const IntegrityKey removed = coll->keyDel(1);
    EXPECT_EQ(removed.serial, 1);
    EXPECT_EQ(removed.description, "d1");
    EXPECT_EQ(serials(), std::vector<int>{2});
}

TEST_F(KeyColl, KeyDelOfAnUnknownSerialReturnsTheDefaultAndChangesNothing) {
    add(1);
    const IntegrityKey none;
    const IntegrityKey removed = coll->keyDel(2);
    EXPECT_TRUE(IntegrityKey::isEq(&removed, &none));
    EXPECT_EQ(serials(), std::vector<int>{1});
}

TEST_F(KeyColl, WalksEveryKeyOnceFromFirstToLast) {
    for (const int serial : {30, -2, 10, 20}) {
        add(serial);
    }
    EXPECT_EQ(serials(), (std::vector<int>{30, -2, 10, 20}));
    coll->keyIs({10, "replaced", "asymmetric"});
    EXPECT_EQ(serials(), (std::vector<int>{30, -2, 10, 20}));
}

TEST_F(KeyColl, WalkSurvivesDeletionOfTheCurrentEntry) {
    for (const int serial : {1, 2, 3, 4}) {
        add(serial);
    }
    std::vector<int> seen;
    for (auto key = coll->key().iterator(); key; ++key) {
        seen.push_back(key->serial);
        if (key->serial != 3) {
            coll->keyDel(key->serial); // also the first and the last
        }
    }
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(serials(), std::vector<int>{3});
}

TEST_F(KeyColl, WalkSurvivesDeletionOfTheCurrentAndTheFollowingEntry) {
    for (const int serial : {1, 2, 3}) {
        add(serial);
    }
    auto key = coll->key().iterator();
    coll->keyDel(1);
    coll->keyDel(2);
    ++key;
    ASSERT_TRUE(key);
    EXPECT_EQ(key->serial, 3);
    coll->keyDel(3);
    ++key;
    EXPECT_FALSE(key);
}

TEST_F(KeyColl, WalkThatEmptiesTheMapEnds) {
    add(1);
    auto key = coll->key().iterator();
    coll->keyDel(1);
    EXPECT_FALSE(key);
    ++key;
    EXPECT_FALSE(key);
}

TEST_F(KeyColl, WalkOfAnEmptyMapStandsOnNothing) {
    EXPECT_FALSE(coll->key().iterator());
}

TEST_F(KeyCollDeathTest, SteppingAnIteratorThatStandsOnNothingIsFatal) {
    add(1);
    auto key = coll->key().iterator();
    ++key;
    EXPECT_DEATH(++key, "assertion failed: iter_");
}

TEST_F(KeyCollDeathTest, ReadingAnIteratorThatStandsOnNothingIsFatal) {
    auto key = coll->key().iterator();
    EXPECT_DEATH((void)key->serial, "assertion failed: iter_");
    EXPECT_DEATH((void)key.key(), "assertion failed: iter_");
}

TEST_F(KeyCollDeathTest, ReadingTheEntryThatWasJustDeletedIsFatal) {
    add(1);
    add(2);
    auto key = coll->key().iterator();
    coll->keyDel(1);
    EXPECT_DEATH((void)key->serial, "assertion failed: iter_");
}

TEST_F(KeyCollDeathTest, SteppingTwiceFromADeletedLastEntryIsFatal) {
    add(1);
    auto key = coll->key().iterator();
    coll->keyDel(1);
    ++key;
    EXPECT_DEATH(++key, "assertion failed: iter_");
}

TEST_F(KeyColl, AnUnmappedFileHasTheEmptyDescription) {
    EXPECT_TRUE(coll->fileToDescription("/a").empty());
    EXPECT_FALSE(coll->fileToDescriptionHas("/a"));
    EXPECT_TRUE(coll->fileToDescription().empty());
}

TEST_F(KeyColl, MapsAFileToItsLatestDescription) {
    coll->fileToDescriptionIs("/a", "first");
    coll->fileToDescriptionIs("/b", "other");
    coll->fileToDescriptionIs("/a", "second");
    EXPECT_EQ(coll->fileToDescription("/a"), "second");
    EXPECT_EQ(coll->fileToDescription("/b"), "other");
    EXPECT_EQ(coll->fileToDescription().size(), 2U);
    EXPECT_TRUE(coll->fileToDescriptionHas("/a"));
}

TEST_F(KeyColl, UnmapsOnlyTheFileNamed) {
    coll->fileToDescriptionIs("/a", "d");
    coll->fileToDescriptionIs("/b", "d");
    coll->fileToDescriptionDel("/c");
    coll->fileToDescriptionDel("/a");
    EXPECT_FALSE(coll->fileToDescriptionHas("/a"));
    EXPECT_TRUE(coll->fileToDescriptionHas("/b"));
}

TEST_F(KeyColl, ADescriptionWithoutFilesHasNoSet) {
    EXPECT_EQ(coll->descriptionToFile("d"), nullptr);
    EXPECT_FALSE(coll->descriptionToFileHas("d"));
    EXPECT_TRUE(coll->descriptionToFile().empty());
}

TEST_F(KeyColl, MakesOneFileSetForADescription) {
    const auto files = coll->descriptionToFileIs("d");
    ASSERT_TRUE(files);
    EXPECT_EQ(files->filePathCount(), 0U);
    files->filePathIs("/a");
    EXPECT_EQ(coll->descriptionToFileIs("d"), files);
    EXPECT_EQ(coll->descriptionToFile("d"), files);
    EXPECT_EQ(files->filePathCount(), 1U);
    EXPECT_TRUE(coll->descriptionToFileHas("d"));
    EXPECT_NE(coll->descriptionToFileIs("D"), files);
    EXPECT_EQ(coll->descriptionToFile().size(), 2U);
}

TEST_F(KeyColl, DeletesOnlyTheDescriptionNamed) {
    const auto held = coll->descriptionToFileIs("d");
    held->filePathIs("/a");
    coll->descriptionToFileIs("e");
    coll->descriptionToFileDel("f");
    coll->descriptionToFileDel("d");
    EXPECT_FALSE(coll->descriptionToFileHas("d"));
    EXPECT_TRUE(coll->descriptionToFileHas("e"));
    EXPECT_EQ(held->refCount(), 1U);
    EXPECT_EQ(held->filePathCount(), 1U);
}

TEST_F(KeyColl, ShowsItsMapsThroughReflection) {
    coll->keyIs({42, "d", "asymmetric"});
    coll->descriptionToFileIs("d")->filePathIs("/a");
    coll->fileToDescriptionIs("/a", "d");
    const Zell::TypeData& type = coll->typeData();
    EXPECT_EQ(&type, Zell::registeredType("Vestrel::IntegrityKeyColl"));
    std::vector<std::string> seen;
    for (const Zell::CollectionData& map : type.collections()) {
        map.forEach(coll.get(), [&](const Orvo::String& key, const Orvo::Value& value) {
            seen.push_back(map.name + (":" + std::string(key.view())));
            if (const auto* const record = std::get_if<Orvo::Record>(&value)) {
                EXPECT_EQ(record->type, &IntegrityKey::typeData());
                EXPECT_TRUE(IntegrityKey::isEq(record->object.get(), coll->key(42)));
                EXPECT_NE(record->object.get(), coll->key(42)) << "a copy, not the member";
            } else if (const auto* const node = std::get_if<Orvo::Ptr<Orvo::Node>>(&value)) {
                EXPECT_EQ(node->get(), coll->descriptionToFile("d").get());
            } else {
                EXPECT_EQ(std::get<Orvo::String>(value), "d");
            }
        });
    }
    EXPECT_EQ(seen,
              (std::vector<std::string>{"key:42", "descriptionToFile:d", "fileToDescription:/a"}));
    const std::vector<std::string> operations(type.operations().begin(), type.operations().end());
    EXPECT_EQ(operations, (std::vector<std::string>{"keyIs", "keyDel", "descriptionToFileIs",
                                                    "descriptionToFileDel", "fileToDescriptionIs",
                                                    "fileToDescriptionDel"}));
}

TEST_F(KeyColl, GivesAllItsMemoryBack) {
    const auto before = Pelbin::total();
    {
        const auto other = Orvo::makeNode<IntegrityKeyColl>();
        other->keyIs({42, "d", "asymmetric"});
        other->descriptionToFileIs("d")->filePathIs("/a");
        other->fileToDescriptionIs("/a", "d");
        EXPECT_GT(Pelbin::total().objects, before.objects + 4);
    }
    EXPECT_EQ(Pelbin::total().objects, before.objects);
    EXPECT_EQ(Pelbin::total().bytes, before.bytes);
}

} // namespace

} // namespace Vestrel::Tests
