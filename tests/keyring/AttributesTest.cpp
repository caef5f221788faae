// SPDX-License-Identifier: Apache-2.0
// Tests the attributes of the keyring state machine and what reflection knows of it.
#include "platform/zell/Errors.h"
#include "platform/zell/TypeData.h"
#include "tests/keyring/CertificateDirectories.h"

#include <array>

namespace Vestrel::Tests {

namespace {

class Attributes : public CertificateDirectories {
protected:
    Attributes() { start(); }

    static KeyringWatcherInfo numbered(const char* name, S32 first) {
        KeyringWatcherInfo info(name);
        info.readFd = first;
        info.writeFd = first + 1;
        info.keyringId = first + 2;
        info.keyringWatchId = first + 3;
        info.inotifyFd = first + 4;
        info.inotifyWatchId = first + 5;
        return info;
    }

    static bool equal(const KeyringWatcherInfo& a, const KeyringWatcherInfo& b) {
        return KeyringWatcherInfo::isEq(&a, &b);
    }

    // Records whose numbers nobody may close.
    void dropForeignRecords() { sm->watcherInfosDel("foreign"); }
};

using Reflection = Attributes;

TEST_F(Attributes, KeepTheCollectionThatTheFactoryWasGiven) {
    EXPECT_EQ(sm->integrityKeyringColl(), coll);
    EXPECT_EQ(coll->refCount(), 2U);
    stop();
    EXPECT_EQ(coll->refCount(), 1U);
}

TEST_F(Attributes, KeyLoaderIsMadeOnceAndAgainAfterItWasDropped) {
    const auto first = sm->keyLoaderIs();
    ASSERT_TRUE(first);
    EXPECT_EQ(sm->keyLoaderIs(), first);
    EXPECT_EQ(sm->keyLoader(), first);
    EXPECT_EQ(sm->keyLoaderDel(), first);
    EXPECT_FALSE(sm->keyLoader());
    EXPECT_FALSE(sm->keyLoaderDel());
    EXPECT_EQ(first->refCount(), 1U);
    const auto second = sm->keyLoaderIs();
    ASSERT_TRUE(second);
    EXPECT_NE(second, first);
    EXPECT_EQ(sm->keyLoader(), second);
}

TEST_F(Attributes, WatcherInfosAreInsertedUnderTheirName) {
    sm->watcherInfosIs(numbered("foreign", 100000));
    EXPECT_EQ(sm->watcherInfos().size(), 5U);
    EXPECT_TRUE(equal(sm->watcherInfos("foreign"), numbered("foreign", 100000)));
    dropForeignRecords();
}

TEST_F(Attributes, WatcherInfosOfAPresentNameGetNewNumbersAndStayOneMember) {
    sm->watcherInfosIs(numbered("foreign", 100000));
    sm->watcherInfosIs(numbered("foreign", 200000));
    EXPECT_EQ(sm->watcherInfos().size(), 5U);
    EXPECT_TRUE(equal(sm->watcherInfos("foreign"), numbered("foreign", 200000)));
    dropForeignRecords();
}

TEST_F(Attributes, WatcherInfosDelReturnsTheMember) {
    sm->watcherInfosIs(numbered("foreign", 100000));
    EXPECT_TRUE(equal(sm->watcherInfosDel("foreign"), numbered("foreign", 100000)));
    EXPECT_EQ(sm->watcherInfos().size(), 4U);
    EXPECT_FALSE(sm->watcherInfos("foreign"));
}

TEST_F(Attributes, WatcherInfosDelOfAnUnknownNameReturnsAFalseRecordAndChangesNothing) {
    const KeyringWatcherInfo none = sm->watcherInfosDel("unknown");
    EXPECT_FALSE(none);
    EXPECT_TRUE(none.keyringName.empty());
    EXPECT_EQ(sm->watcherInfos().size(), 4U);
}

TEST_F(Attributes, WatcherInfosDelAllEmptiesTheCollectionAndClosesNothing) {
    const auto before = openDescriptors();
    sm->watcherInfosDelAll();
    EXPECT_TRUE(sm->watcherInfos().empty());
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_TRUE(calls.callsOf({"close"}).empty());
    for (const char* const name : IntegrityKeyringSm::keyringNames) { // nobody else will
        close(sm->inotifyDescriptors().value(name)->descriptor());
        close(sm->keyringWatchFileDescriptors().value(name)->descriptor());
    }
}

TEST_F(Attributes, ALookUpThatFindsNothingYieldsAFalseRecord) {
    EXPECT_FALSE(sm->watcherInfos("unknown"));
    EXPECT_TRUE(sm->watcherInfos(".ima"));
    EXPECT_EQ(sm->watcherInfos(".ima").keyringName, ".ima");
}

TEST_F(Attributes, DescriptorsStandUnderTheKeyringsName) {
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        const KeyringWatcherInfo info = sm->watcherInfos(name);
        EXPECT_EQ(sm->inotifyDescriptors().value(name)->descriptor(), info.inotifyFd);
        EXPECT_EQ(sm->keyringWatchFileDescriptors().value(name)->descriptor(), info.readFd);
    }
    EXPECT_EQ(sm->inotifyDescriptors().size(), 4U);
    EXPECT_EQ(sm->keyringWatchFileDescriptors().size(), 4U);
}

TEST_F(Attributes, NotificationsSwitchedOffDeliverNothingUntilTheyAreOnAgain) {
    sm->hasNotificationActiveIs(false);
    put("a", "first");
    dispatch();
    EXPECT_TRUE(keys.keysOf(".ima").empty());
    EXPECT_FALSE(sm->zombieReactors());
    sm->hasNotificationActiveIs(true);
    dispatch();
    EXPECT_EQ(keys.keysOf(".ima").size(), 1U);
    EXPECT_FALSE(sm->zombieReactors());
}

TEST_F(Attributes, SwitchingNotificationsKeepsTheZombieFlagAsItWas) {
    sm->zellDoZombieReactors(true);
    sm->hasNotificationActiveIs(false);
    EXPECT_TRUE(sm->zombieReactors());
    EXPECT_FALSE(sm->hasNotificationActive());
    sm->zellDoZombieReactors(false);
    EXPECT_FALSE(sm->zombieReactors());
}

TEST_F(Attributes, AfterTheFactoryNotificationsAreOn) {
    EXPECT_TRUE(sm->hasNotificationActive());
    EXPECT_EQ(sm->refCount(), 1U);
}

TEST_F(Reflection, KnowsTheTypeByItsName) {
    const Zell::TypeData& type = sm->typeData();
    EXPECT_STREQ(type.name(), "Vestrel::IntegrityKeyringSm");
    EXPECT_EQ(&type, Zell::registeredType("Vestrel::IntegrityKeyringSm"));
}

TEST_F(Reflection, GivesTheKeyringCollectionAndTheLoader) {
    const Zell::TypeData& type = sm->typeData();
    ASSERT_EQ(type.attributes().size(), 2U);
    EXPECT_STREQ(type.attributes()[0].name, "integrityKeyringColl");
    EXPECT_STREQ(type.attributes()[1].name, "keyLoader");
    const auto given = [&](std::size_t at) {
        return std::get<Orvo::Ptr<Orvo::Node>>(type.value(sm.get(), at));
    };
    EXPECT_EQ(given(0).get(), coll.get());
    EXPECT_EQ(given(1).get(), sm->keyLoader().get());
}

TEST_F(Reflection, ExposesTheThreeCollections) {
    std::vector<std::string> names;
    for (const Zell::CollectionData& collection : sm->typeData().collections()) {
        names.emplace_back(collection.name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"watcherInfos", "inotifyDescriptors",
                                               "keyringWatchFileDescriptors"}));
}

TEST_F(Reflection, WalksCopiesOfTheWatcherRecords) {
    std::vector<Orvo::Record> copies;
    sm->typeData().collections()[0].forEach(
        sm.get(), [&](const Orvo::String& name, const Orvo::Value& value) {
            copies.push_back(std::get<Orvo::Record>(value));
            EXPECT_EQ(copies.back().type, &KeyringWatcherInfo::typeData());
            EXPECT_NE(copies.back().object.get(), sm->watcherInfos().find(name));
            EXPECT_TRUE(equal(*static_cast<const KeyringWatcherInfo*>(copies.back().object.get()),
                              sm->watcherInfos(name)));
        });
    ASSERT_EQ(copies.size(), 4U);
    const KeyringWatcherInfo removed = sm->watcherInfosDel(".ima");
    EXPECT_TRUE(
        equal(*static_cast<const KeyringWatcherInfo*>(copies.front().object.get()), removed));
    sm->watcherInfosIs(removed);
}

TEST_F(Reflection, WalksTheDescriptorsThemselves) {
    const auto& collections = sm->typeData().collections();
    std::vector<std::string> names;
    collections[1].forEach(sm.get(), [&](const Orvo::String& name, const Orvo::Value& value) {
        names.emplace_back(name.view());
        EXPECT_EQ(std::get<Orvo::Ptr<Orvo::Node>>(value).get(),
                  sm->inotifyDescriptors().value(name).get());
    });
    collections[2].forEach(sm.get(), [&](const Orvo::String& name, const Orvo::Value& value) {
        names.emplace_back(name.view());
        EXPECT_EQ(std::get<Orvo::Ptr<Orvo::Node>>(value).get(),
                  sm->keyringWatchFileDescriptors().value(name).get());
    });
    EXPECT_EQ(names, (std::vector<std::string>{
                         ".ima", ".secondary_trusted_keys", ".builtin_trusted_keys", ".machine",
                         ".ima", ".secondary_trusted_keys", ".builtin_trusted_keys", ".machine"}));
}

TEST_F(Reflection, ListsTheOperationsByName) {
    std::vector<std::string> listed;
    for (const char* const name : sm->typeData().operations()) {
        listed.emplace_back(name);
    }
    std::ranges::sort(listed);
    EXPECT_EQ(listed, (std::vector<std::string>{"clearKey",
                                                "closeAllFd",
                                                "createInotifyWatch",
                                                "createKeyringWatch",
                                                "createWatcher",
                                                "getKey",
                                                "handleDelete",
                                                "handleInitialized",
                                                "handleInotify",
                                                "handleKeyringWatch",
                                                "hasNotificationActiveIs",
                                                "inotifyDescriptorsDel",
                                                "inotifyDescriptorsDelAll",
                                                "inotifyDescriptorsIs",
                                                "keyLoaderDel",
                                                "keyLoaderIs",
                                                "keyringWatchFileDescriptorsDel",
                                                "keyringWatchFileDescriptorsDelAll",
                                                "keyringWatchFileDescriptorsIs",
                                                "loadFile",
                                                "modifyFile",
                                                "removeDuplicates",
                                                "removeFile",
                                                "unlinkKey",
                                                "unmapFileToDescription",
                                                "watcherInfosDel",
                                                "watcherInfosDelAll",
                                                "watcherInfosIs"}));
}

TEST_F(Reflection, ConstructsFromTheKeyringCollectionAlone) {
    const Zell::TypeData& type = sm->typeData();
    stop();
    const Orvo::Value argument{Orvo::Ptr<Orvo::Node>(coll)};
    {
        const auto made = std::get<Orvo::Ptr<Orvo::Node>>(type.construct({&argument, 1}));
        const auto* const other = dynamic_cast<IntegrityKeyringSm*>(made.get());
        ASSERT_NE(other, nullptr);
        EXPECT_EQ(other->integrityKeyringColl(), coll);
        EXPECT_TRUE(other->hasNotificationActive());
        EXPECT_EQ(other->watcherInfos().size(), 4U);
    }
    EXPECT_EQ(keys.openQueues(), 0U);
}

TEST_F(Reflection, RefusesOtherConstructorArguments) {
    const Zell::TypeData& type = sm->typeData();
    const std::array<Orvo::Value, 4> wrong{Orvo::Ptr<Orvo::Node>(coll), std::int64_t{1},
                                           Orvo::Ptr<Orvo::Node>(sm), Orvo::Ptr<Orvo::Node>()};
    try {
        type.construct({});
        ADD_FAILURE() << "constructed";
    } catch (const Zell::AttributeError& refusal) {
        EXPECT_STREQ(refusal.what(),
                     "Vestrel::IntegrityKeyringSm is constructed from integrityKeyringColl");
    }
    EXPECT_THROW(type.construct({wrong.data(), 2}), Zell::AttributeError);
    for (std::size_t i = 1; i < wrong.size(); ++i) {
        EXPECT_THROW(type.construct({&wrong[i], 1}), Zell::AttributeError) << i;
    }
}

} // namespace

} // namespace Vestrel::Tests
