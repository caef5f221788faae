// SPDX-License-Identifier: Apache-2.0
// Tests which states are drift, and which only look like it.
#include "agent/Drift.h"

#include "tests/keyring/CertificateDirectories.h"

#include <cerrno>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

class Drift : public CertificateDirectories {
protected:
    Drift() { start(); }

    Differences found(const std::string& keyring = ".ima", bool eventsWereLost = false) {
        sm->handleInotify(keyring);
        sm->handleKeyringWatch(keyring);
        return differences(surveyed(keyring), *sm, eventsWereLost);
    }

    // Puts the certificate there without the state machine's being told.
    std::string putUnseen(const std::string& fileName, const std::string& name) {
        const std::string path = put(fileName, name);
        forgetEvents();
        return path;
    }

    void forgetEvents() const {
        std::array<char, 4096> events{};
        while (::read(sm->watcherInfos(".ima").inotifyFd, events.data(), events.size()) > 0) {
        }
    }

    void forgetNotifications() const {
        std::array<char, 16> record{};
        while (::read(sm->watcherInfos(".ima").readFd, record.data(), record.size()) > 0) {
        }
    }

    static Differences only(const std::string& difference) { return {".ima: " + difference}; }

    static std::string keyText(key_serial_t key, const std::string& name) {
        return "key " + std::to_string(key) + " (" + described(name) + ")";
    }
};

using NoDrift = Drift;
using LostEvents = Drift;

TEST_F(NoDrift, IsAFreshStartOfAnyKeyring) {
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        EXPECT_EQ(found(name), Differences{});
    }
}

TEST_F(NoDrift, IsAKeyringThatTheKernelDoesNotHave) {
    stop();
    keys.removeKeyring(".machine");
    start();
    EXPECT_EQ(found(".machine"), Differences{});
}

TEST_F(NoDrift, IsAKeyWithoutAFile) {
    keys.addKey(".ima", "alone: 00");
    EXPECT_EQ(found(), Differences{});
}

TEST_F(NoDrift, IsAKeyThatSomebodyUnlinkedWhileItsFileStays) {
    put("signer", "first");
    dispatch();
    keys.unlink(".ima", keys.keysOf(".ima").front());
    EXPECT_EQ(found(), Differences{});
}

TEST_F(NoDrift, IsAFileThatTheKernelRefused) {
    keys.judgeWith([](auto) { return ENOKEY; });
    put("stranger", "first");
    EXPECT_EQ(found(), Differences{});
    stop();
    start(); // at start the file is on record in spite of the refusal
    EXPECT_EQ(found(), Differences{});
}

TEST_F(NoDrift, IsAFileThatWasGoodAndIsRefusedNow) {
    put("signer", "first");
    dispatch();
    keys.judgeWith([](auto) { return ENOKEY; });
    put("signer", "second");
    EXPECT_EQ(found(), Differences{});
}

TEST_F(NoDrift, AreTemporaryFilesAndWhatIsNoCertificate) {
    put("new.integrity-tmp", "first");
    write(file("notes.txt"), "no certificate");
    fs::create_directory(file("folder"));
    EXPECT_EQ(found(), Differences{});
    stop();
    start(); // a temporary file is taken at start
    fs::remove(file("new.integrity-tmp"));
    EXPECT_EQ(found(), Differences{});
}

TEST_F(NoDrift, IsAFileOverAnother) {
    put("a", "first");
    put("b", "second");
    dispatch();
    fs::rename(file("b"), file("a"));
    EXPECT_EQ(found(), Differences{});
}

TEST_F(NoDrift, IsAKeyThatCannotBeDescribed) {
    const key_serial_t hidden = keys.addKey(".ima", "hidden: 00");
    keys.revoke(hidden);
    EXPECT_EQ(found(), Differences{});
}

TEST_F(NoDrift, AreNestedKeyrings) {
    keys.link(".secondary_trusted_keys", keys.serialOf(".builtin_trusted_keys"));
    EXPECT_EQ(found(".secondary_trusted_keys"), Differences{});
}

TEST_F(Drift, IsAClearedKeyring) {
    put("signer", "first");
    dispatch();
    const key_serial_t key = keys.keysOf(".ima").front();
    keys.clear(".ima");
    EXPECT_EQ(found(), only(keyText(key, "first") + " is on record but gone"));
}

TEST_F(Drift, IsAKeyWhoseNotificationWasLost) {
    const key_serial_t key = keys.addKey(".ima", described("first"));
    forgetNotifications();
    EXPECT_EQ(found(), only(keyText(key, "first") + " is not on record"));
}

TEST_F(Drift, IsARevokedKeyring) {
    keys.revoke(keys.serialOf(".ima"));
    EXPECT_EQ(found(), only("the kernel does not have it any more: Key has been revoked"));
}

TEST_F(Drift, IsAKeyringThatWentOrThatCameOrIsAnotherOne) {
    keys.removeKeyring(".ima");
    EXPECT_EQ(found(), only("the kernel does not have it any more: Required key not available"));
    keys.keyring(".ima");
    EXPECT_TRUE(found().contains(".ima: the kernel has another one under its name"));
    stop();
    keys.removeKeyring(".ima");
    start();
    keys.keyring(".ima");
    EXPECT_EQ(found(), only("the kernel has it now"));
}

TEST_F(Drift, IsAMissedFile) {
    const std::string path = putUnseen("signer", "first");
    EXPECT_EQ(found(), only(path + " is not on record"));
}

TEST_F(Drift, IsAFileWhoseRemovalWasMissed) {
    const std::string path = put("signer", "first");
    dispatch();
    fs::remove(path);
    forgetEvents();
    EXPECT_EQ(found(), only(path + " is on record but gone"));
}

TEST_F(Drift, IsAFileWhoseNewContentWasMissed) {
    put("signer", "first");
    dispatch();
    const std::string path = putUnseen("signer", "second");
    EXPECT_EQ(found(), only(path + " is on record as another certificate"));
}

TEST_F(Drift, IsADirectoryThatIsAnotherOneThanTheWatched) {
    fs::remove_all(directory());
    fs::create_directory(directory());
    EXPECT_EQ(found(), only("its directory is not watched"));
}

TEST_F(Drift, IsAMissingDirectory) {
    fs::remove_all(directory());
    EXPECT_EQ(found(), (Differences{".ima: its directory cannot be read: No such file or directory",
                                    ".ima: its directory is not watched"}));
}

TEST_F(Drift, IsAWatchThatCouldNotBeOpened) {
    stop();
    calls.failNext("inotify_add_watch", ENOSPC);
    calls.failNext("pipe2", EMFILE);
    start();
    EXPECT_EQ(found(),
              (Differences{".ima: it is not watched", ".ima: its directory is not watched"}));
}

TEST_F(LostEvents, PutARefusalInDoubt) {
    keys.judgeWith([](auto) { return ENOKEY; });
    put("stranger", "first");
    dispatch();
    EXPECT_EQ(found(".ima", true), only(file("stranger") + " is not on record"));
}

TEST_F(LostEvents, AreMadeUpForByUnlinkingTheKeysOfWhatWent) {
    put("gone", "first");
    put("changed", "second");
    put("same", "third");
    dispatch();
    fs::remove(file("gone"));
    put("changed", "fourth");
    forgetEvents();
    lostEventsMakeUpFor(surveyed(".ima"), *sm);
    auto expected = std::vector<std::string>{described("fourth"), described("third")};
    auto held = keys.descriptionsOf(".ima");
    std::ranges::sort(expected);
    std::ranges::sort(held);
    EXPECT_EQ(held, expected);
    EXPECT_EQ(found(), Differences{});
}

TEST_F(LostEvents, UnlinkNothingWhenTheDirectoryCannotBeRead) {
    put("signer", "first");
    dispatch();
    fs::rename(directory(), "/etc/keys/elsewhere");
    lostEventsMakeUpFor(surveyed(".ima"), *sm);
    EXPECT_EQ(keys.keysOf(".ima").size(), 1U);
}

TEST(DriftSummary, NamesTheFirstFewAndCountsTheRest) {
    EXPECT_EQ(summary({}), "");
    EXPECT_EQ(summary({"a", "b"}), "a; b");
    EXPECT_EQ(summary({"1", "2", "3", "4", "5", "6", "7"}), "1; 2; 3; 4; 5; and 2 more");
}

} // namespace

} // namespace Vestrel::Tests
