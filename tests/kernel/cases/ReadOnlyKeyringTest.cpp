// SPDX-License-Identifier: Apache-2.0
// The keyrings that only the kernel fills: watched and read, never written.
#include "tests/kernel/cases/KernelTest.h"

#include <algorithm>
#include <filesystem>

namespace Vestrel::Tests {
namespace {

const Lines readOnlyKeyrings{".builtin_trusted_keys", ".machine"};

class ReadOnlyKeyring : public LibraryTest {};

TEST_F(ReadOnlyKeyring, IsWatchedOnBothSides) {
    start();
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        const KeyringWatcherInfo info = stateMachine().watcherInfos(name);
        EXPECT_EQ(info.keyringId, Keyring::named(name).serial()) << name;
        EXPECT_GT(info.inotifyFd, 0) << name;
        EXPECT_GT(info.inotifyWatchId, 0) << name;
        EXPECT_GT(info.readFd, 0) << name;
        EXPECT_GT(info.writeFd, 0) << name;
        EXPECT_TRUE(stateMachine().inotifyDescriptors().has(name)) << name;
        EXPECT_TRUE(stateMachine().keyringWatchFileDescriptors().has(name)) << name;
    }
    EXPECT_EQ(stateMachine().watcherInfos(".machine").keyringWatchId, 4);
    EXPECT_EQ(failures(), Lines{});
}

TEST_F(ReadOnlyKeyring, HasTheKeysThatTheKernelCameWithOnRecord) {
    start();
    const auto keys = Keyring::named(".builtin_trusted_keys").keys();
    ASSERT_FALSE(keys.empty());
    const IntegrityKeyColl& coll = library().keyColl(".builtin_trusted_keys");
    EXPECT_EQ(coll.key().size(), keys.size());
    for (const key_serial_t key : keys) {
        EXPECT_EQ(recordOf(key, ".builtin_trusted_keys"), descriptionOf(key));
        const IntegrityKey* const record = coll.key(key);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->type, Orvo::String("asymmetric"));
    }
}

TEST_F(ReadOnlyKeyring, LeavesNestedKeyringsOutOfTheSecondarysRecords) {
    start();
    const Keyring secondary = Keyring::named(".secondary_trusted_keys");
    EXPECT_EQ(secondary.keys().size(), 0U);
    EXPECT_GE(secondary.members().size(), 1U);
    EXPECT_EQ(library().keyColl(".secondary_trusted_keys").key().size(), 0U);
    EXPECT_GE(countTraced("5 getKey: Key is a keyring, ignoring"), secondary.members().size());
}

class ReadOnlyDirectory : public EitherHostTest {};

TEST_P(ReadOnlyDirectory, HasItsCertificatesRefusedAtTheStart) {
    for (const std::string& keyring : readOnlyKeyrings) {
        std::filesystem::create_directories(directory(keyring));
        write(file("early", keyring), certificate("early"));
    }
    start();
    EXPECT_EQ(messages(), (Lines{refusal(file("early", readOnlyKeyrings[0]), "Permission denied",
                                         readOnlyKeyrings[0]),
                                 refusal(file("early", readOnlyKeyrings[1]), "Permission denied",
                                         readOnlyKeyrings[1])}));
    fence(); // and everything else goes on
}

TEST_P(ReadOnlyDirectory, HasItsCertificatesRefusedLater) {
    start();
    for (const std::string& keyring : readOnlyKeyrings) {
        write(file("late", keyring), certificate("late"));
        EXPECT_TRUE(eventually([&] {
            return std::ranges::count(messages(), refusal(file("late", keyring),
                                                          "Permission denied", keyring)) == 1;
        }));
        EXPECT_EQ(Keyring::named(keyring).keyOf(description("late")), 0);
        std::filesystem::remove(file("late", keyring)); // was never mapped
    }
    fence();
    EXPECT_EQ(messages().size(), readOnlyKeyrings.size());
}

VESTREL_WITH_EITHER_HOST(ReadOnlyDirectory);

} // namespace
} // namespace Vestrel::Tests
