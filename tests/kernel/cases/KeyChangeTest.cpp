// SPDX-License-Identifier: Apache-2.0
// Keys that come and go by other hands, and files that share a description.
#include "tests/kernel/cases/KernelTest.h"

#include <filesystem>

namespace Vestrel::Tests {
namespace {

namespace fs = std::filesystem;

class KeyChange : public LibraryTest {
protected:
    void SetUp() override { start(); }

    std::size_t records() { return library().keyColl().key().size(); }

    const Keyring ima_ = Keyring::named(".ima");
};

TEST_F(KeyChange, ByHandIsRecordedAndForgotten) {
    const key_serial_t key = ima_.add(certificate("hand"));
    EXPECT_TRUE(eventually([&] { return recordOf(key) == description("hand"); }));
    EXPECT_EQ(library().keyColl().fileToDescription().size(), 0U);
    ima_.unlink(key);
    EXPECT_TRUE(eventually([&] { return records() == 0; }));
    EXPECT_EQ(failures(), Lines{});
}

TEST_F(KeyChange, InOneKeyringIsNotRecordedForAnother) {
    const key_serial_t key = Keyring::named(".secondary_trusted_keys").add(certificate("hand"));
    EXPECT_TRUE(eventually(
        [&] { return recordOf(key, ".secondary_trusted_keys") == description("hand"); }));
    EXPECT_EQ(records(), 0U);
}

TEST_F(KeyChange, ThatDisplacesLeavesOnlyTheNewKeyOnRecord) {
    const key_serial_t first = ima_.add(certificate("twin", 1));
    EXPECT_TRUE(eventually([&] { return !recordOf(first).empty(); }));
    const key_serial_t second = ima_.add(certificate("twin", 2));
    EXPECT_TRUE(eventually([&] { return !recordOf(second).empty(); }));
    EXPECT_NE(first, second);
    EXPECT_EQ(recordOf(first), "");
    EXPECT_EQ(records(), 1U);
    EXPECT_TRUE(traced("5 removeDuplicates: Removing duplicate " + std::to_string(first)));
    EXPECT_EQ(ima_.keys(), std::vector<key_serial_t>{second});
}

TEST_F(KeyChange, ThatLinksAKeyringIsNotRecorded) {
    const Keyring outer = Keyring::made("outer");
    const Keyring inner = Keyring::made("inner");
    library().keyrings()->keyringIs("outer");
    KeyringWatcherInfo info("outer");
    info.keyringId = outer.serial();
    info = stateMachine().createKeyringWatch(info);
    stateMachine().watcherInfosIs(info);
    outer.link(inner.serial());
    EXPECT_TRUE(eventually([&] {
        return traced("5 getKey: Key is a keyring, ignoring") &&
               countTraced("subType: linked") == 1;
    }));
    EXPECT_EQ(library().keyColl("outer").key().size(), 0U);
}

TEST_F(KeyChange, OfAnUnlinkedKeyLeavesItsFileMappedUntilTheFileGoes) {
    write(file("mapped"), certificate("mapped"));
    const key_serial_t key = recorded("mapped");
    ima_.unlink(key);
    EXPECT_TRUE(eventually([&] { return records() == 0; }));
    EXPECT_EQ(library().keyColl().fileToDescription(file("mapped")),
              Orvo::String(description("mapped")));
    fs::remove(file("mapped"));
    EXPECT_TRUE(eventually([&] { return library().keyColl().fileToDescription().size() == 0; }));
    EXPECT_EQ(failures(), Lines{});
}

TEST_F(KeyChange, OfAClearedKeyringIsIgnored) {
    const key_serial_t key = ima_.add(certificate("cleared"));
    EXPECT_TRUE(eventually([&] { return !recordOf(key).empty(); }));
    ima_.clear();
    EXPECT_TRUE(eventually([&] { return traced("5 handleKeyringWatch: Ignoring notification"); }));
    EXPECT_EQ(countTraced("subType: cleared, keyId: 0"), 1U);
    EXPECT_EQ(recordOf(key), description("cleared"));
}

TEST_F(KeyChange, OfADescriptionWithASemicolonIsKnownByTheTextBeforeIt) {
    CertificatePlan plan;
    plan.subject = {{"CN", "left;right"}};
    write(file("semicolon"), trustedAuthority().issue(plan));
    EXPECT_TRUE(eventually([&] { return records() == 1; }));
    const key_serial_t key = ima_.keyOf(description("left;right"));
    EXPECT_EQ(recordOf(key), "left");
    EXPECT_EQ(library().keyColl().fileToDescription(file("semicolon")), Orvo::String("left"));
    fs::remove(file("semicolon"));
    EXPECT_TRUE(holdsOnly({}));
}

class SharedDescription : public EitherHostTest {
protected:
    void SetUp() override {
        start();
        write(file("a"), certificate("twin", 1));
        first_ = recorded("twin");
        write(file("b"), certificate("twin", 2));
        EXPECT_TRUE(eventually([&] { return ima_.keyOf(description("twin")) != first_; }));
        second_ = recorded("twin");
    }

    const Keyring ima_ = Keyring::named(".ima");
    key_serial_t first_ = 0;
    key_serial_t second_ = 0;
};

TEST_P(SharedDescription, HasOneKeyThatGoesWithTheLastFile) {
    EXPECT_EQ(ima_.keys(), std::vector<key_serial_t>{second_});
    fs::remove(file("a"));
    fence();
    EXPECT_EQ(ima_.keys(), std::vector<key_serial_t>{second_});
    fs::remove(file("b"));
    EXPECT_TRUE(holdsOnly({}));
    EXPECT_EQ(countTraced("5 unlinkKey: Unlinking " + std::to_string(second_)), 1U);
    EXPECT_EQ(failures(), Lines{});
}

TEST_P(SharedDescription, HasOneKeyThatGoesWithTheLastFileInTheOtherOrder) {
    fs::remove(file("b"));
    fence();
    EXPECT_EQ(ima_.keys(), std::vector<key_serial_t>{second_});
    fs::remove(file("a"));
    EXPECT_TRUE(holdsOnly({}));
}

TEST_P(SharedDescription, KeepsItsKeyWhenOneFileChangesToAnother) {
    write(file("a"), certificate("other"));
    EXPECT_TRUE(holdsOnly({"other", "twin"}));
    recorded("other");
    write(file("b"), certificate("other", 2));
    EXPECT_TRUE(holdsOnly({"other"}));
    recorded("other");
    fs::remove(file("a"));
    fence();
    EXPECT_TRUE(holdsOnly({"other"}));
    fs::remove(file("b"));
    EXPECT_TRUE(holdsOnly({}));
}

TEST_P(SharedDescription, LosesAFileThatNoLongerLoads) {
    write(file("a"), bytesOf("no certificate"));
    fence();
    EXPECT_EQ(messages(), Lines{refusal(file("a"), "Bad message")});
    EXPECT_TRUE(holdsOnly({"twin"}));
    write(file("b"), bytesOf("no certificate"));
    EXPECT_TRUE(holdsOnly({}));
    fs::remove(file("a"));
    fs::remove(file("b"));
    fence();
    EXPECT_TRUE(holdsOnly({}));
}

VESTREL_WITH_EITHER_HOST(SharedDescription);

} // namespace
} // namespace Vestrel::Tests
