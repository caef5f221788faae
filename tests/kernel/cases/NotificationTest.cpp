// SPDX-License-Identifier: Apache-2.0
// The state machine on a keyring that the case owns: overflow, death and removal of what is
// watched.
#include "tests/kernel/cases/KernelTest.h"

#include <string>

namespace Vestrel::Tests {
namespace {

const std::string name = "private";

class PrivateKeyring : public LibraryTest {
protected:
    void SetUp() override {
        start();
        library().keyrings()->keyringIs(name);
        KeyringWatcherInfo info(name);
        info.keyringId = ring_.serial();
        info = stateMachine().createKeyringWatch(info);
        stateMachine().watcherInfosIs(info);
        ASSERT_GT(info.readFd, 0);
    }

    std::size_t records() { return library().keyColl(name).key().size(); }

    const Keyring ring_ = Keyring::made(name);
};

TEST_F(PrivateKeyring, GetsTheNextWatchId) {
    EXPECT_EQ(stateMachine().watcherInfos(name).keyringWatchId, 5);
}

TEST_F(PrivateKeyring, HasKeysOfAnyTypeRecorded) {
    const key_serial_t key = ring_.addUser("anything");
    EXPECT_TRUE(eventually([&] { return recordOf(key, name) == "anything"; }));
    stateMachine().unlinkKey(key, name);
    EXPECT_TRUE(eventually([&] { return records() == 0; }));
    EXPECT_EQ(ring_.keys().size(), 0U);
}

TEST_F(PrivateKeyring, GoesOnAfterALoss) {
    for (int i = 0; i < 300; ++i) {
        ring_.addUser("burst-" + std::to_string(i));
    }
    EXPECT_TRUE(eventually([&] {
        return traced("5 handleKeyringWatch: Read too few bytes for a valid notification");
    }));
    EXPECT_EQ(countTraced("handleKeyringWatch: Read 8 bytes"), 1U);
    EXPECT_EQ(records(), 256U);
    const key_serial_t later = ring_.addUser("later");
    EXPECT_TRUE(eventually([&] { return recordOf(later, name) == "later"; }));
    EXPECT_EQ(records(), 257U);
    EXPECT_EQ(failures(), Lines{});
}

TEST_F(PrivateKeyring, ForgetsNothingWhenAMemberDies) {
    const key_serial_t revoked = ring_.addUser("revoked");
    const key_serial_t invalid = ring_.addUser("invalid");
    EXPECT_TRUE(eventually([&] { return records() == 2; }));
    ASSERT_EQ(keyctl_revoke(revoked), 0);
    ASSERT_EQ(keyctl_invalidate(invalid), 0);
    const key_serial_t later = ring_.addUser("later");
    EXPECT_TRUE(eventually([&] { return !recordOf(later, name).empty(); }));
    EXPECT_EQ(records(), 3U);
}

TEST_F(PrivateKeyring, IgnoresItsOwnAttributesAndRevocation) {
    ASSERT_EQ(keyctl_setperm(ring_.serial(), 0x3f3f0000), 0);
    ASSERT_EQ(keyctl_revoke(ring_.serial()), 0);
    EXPECT_TRUE(
        eventually([&] { return countTraced("handleKeyringWatch: Ignoring notification") == 2; }));
    EXPECT_EQ(countTraced("subType: setattr, keyId: 0"), 1U);
    EXPECT_EQ(countTraced("subType: revoked, keyId: 0"), 1U);
    EXPECT_EQ(failures(), Lines{});
}

TEST_F(PrivateKeyring, IsReportedAsRemovedAndStaysOnRecord) {
    ASSERT_EQ(keyctl_unlink(ring_.serial(), KEY_SPEC_PROCESS_KEYRING), 0);
    EXPECT_TRUE(eventually(
        [&] { return traced("1 handleKeyringWatch: Watched keyring private has been removed"); }));
    EXPECT_TRUE(stateMachine().keyringWatchFileDescriptors().has(name));
    EXPECT_EQ(stateMachine().watcherInfos(name).keyringId, ring_.serial());
    fence(); // the other keyrings go on
}

TEST_F(PrivateKeyring, IsRefusedWhenItIsGone) {
    KeyringWatcherInfo info("gone");
    info.keyringId = 0x7fffffff;
    const KeyringWatcherInfo result = stateMachine().createKeyringWatch(info);
    EXPECT_EQ(result.readFd, 0);
    EXPECT_EQ(result.writeFd, 0);
    EXPECT_FALSE(stateMachine().keyringWatchFileDescriptors().has("gone"));
    EXPECT_EQ(failures(),
              Lines{"1 createKeyringWatch: keyctl_watch_key: Required key not available"});
}

} // namespace
} // namespace Vestrel::Tests
