// SPDX-License-Identifier: Apache-2.0
// Tests how one keyring is brought under watch: found, watched, recorded, and its keys read.
#include "tests/keyring/CertificateDirectories.h"

#include <cerrno>
#include <cstring>

namespace Vestrel::Tests {

namespace {

class KeyringWatcher : public CertificateDirectories {
protected:
    static std::string number(long value) { return std::to_string(value); }

    static std::string failure(const std::string& what, int error) {
        return "1 createWatcher: " + what + ": " + std::strerror(error);
    }

    static std::string created(S32 serial, const std::string& description) {
        return "5 createWatcher: Creating key Vestrel::IntegrityKey( serial=" + number(serial) +
               ", description=\"" + description + "\", type=\"asymmetric\" )";
    }

    static std::vector<std::uint8_t> payload(const std::vector<key_serial_t>& serials) {
        const auto* const first = reinterpret_cast<const std::uint8_t*>(serials.data());
        return {first, first + serials.size() * sizeof(key_serial_t)};
    }

    std::size_t tracedTimes(const std::string& line) const {
        return static_cast<std::size_t>(std::ranges::count(traces(), line));
    }
};

TEST_F(KeyringWatcher, TracesItsWayInOrder) {
    keepOnly(".ima");
    const key_serial_t key = keys.addKey(".ima", described("present"));
    put("present", "present");
    put("missing", "missing");
    start(true);
    const KeyringWatcherInfo info = sm->watcherInfos(".ima");
    const key_serial_t loaded = keys.keysOf(".ima").at(1);
    const std::string kernelText = ": asymmetric;0;0;39010000;";
    TraceLines ima = traces();
    ima.erase(std::ranges::find(ima, "5 createWatcher: .secondary_trusted_keys"), ima.end());
    EXPECT_EQ(ima,
              (TraceLines{
                  "5 handleInitialized: ",
                  "5 createWatcher: .ima",
                  "5 createWatcher: keyringId: " + number(info.keyringId),
                  "5 createInotifyWatch: .ima",
                  "5 createInotifyWatch: Creating watch on directory /etc/keys/ima",
                  "5 handleInotify: .ima",
                  "5 handleInotify: readFd: " + number(info.inotifyFd) + ", size: 4096",
                  "5 handleInotify: No more to read",
                  "5 createKeyringWatch: readFd: " + number(info.readFd),
                  "5 createKeyringWatch: writeFd: " + number(info.writeFd),
                  "5 createKeyringWatch: .ima assigned watchId 1",
                  "5 handleKeyringWatch: .ima",
                  "5 handleKeyringWatch: No more to read",
                  "5 createWatcher: keyctl_read_alloc:4 bytes",
                  "5 createWatcher: Found 1 existing keys",
                  "5 createWatcher: Processing existing key " + number(key),
                  "5 getKey: " + number(key) + ", .ima",
                  "5 getKey: keyctl_describe_alloc" + kernelText + described("present"),
                  created(key, described("present")),
                  "5 createWatcher: Loading key /etc/keys/ima/missing as it was not in the keyring",
                  "5 loadFile: .ima, /etc/keys/ima/missing",
                  "5 loadFile: Mapping " + number(loaded) + " to /etc/keys/ima/missing",
                  "5 getKey: " + number(loaded) + ", .ima",
                  "5 getKey: keyctl_describe_alloc" + kernelText + described("missing"),
              }));
}

TEST_F(KeyringWatcher, TracesAMemberBeforeItIsMade) {
    keepOnly(".ima");
    const key_serial_t key = keys.addKey(".ima", described("present"));
    int seen = 0;
    onTrace = [&](const std::string& line) {
        if (line == "5 createWatcher: .ima") {
            ++seen;
            EXPECT_FALSE(keyColl());
        } else if (line == created(key, described("present"))) {
            ++seen;
            EXPECT_EQ(keyColl()->key(key), nullptr);
        }
    };
    start();
    onTrace = nullptr;
    EXPECT_EQ(seen, 2);
    EXPECT_NE(keyColl()->key(key), nullptr);
}

TEST_F(KeyringWatcher, AsksTheKernelInOrder) {
    keepOnly(".ima");
    const key_serial_t key = keys.addKey(".ima", described("present"));
    put("missing", "missing");
    start(true);
    const KeyringWatcherInfo info = sm->watcherInfos(".ima");
    const std::string ring = number(info.keyringId);
    const std::string added = number(keys.keysOf(".ima").at(1));
    std::vector<std::string> first = keys.calls();
    first.resize(7);
    EXPECT_EQ(first, (std::vector<std::string>{
                         "find_key_by_type_and_desc keyring .ima 0",
                         "keyctl_watch_key " + ring + " " + number(info.writeFd) + " 1",
                         "keyctl_read_alloc " + ring,
                         "keyctl_describe_alloc " + number(key),
                         "find_key_by_type_and_desc keyring .ima 0", // the loader's own
                         "add_key asymmetric NULL " +
                             number(static_cast<long>(certificate("missing").size())) + " " + ring,
                         "keyctl_describe_alloc " + added,
                     }));
}

TEST_F(KeyringWatcher, RecordsWhatWasFoundAndOpened) {
    start(true);
    int watchId = 0;
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        const KeyringWatcherInfo info = sm->watcherInfos(name);
        EXPECT_EQ(info.keyringName, name);
        EXPECT_EQ(info.keyringId, keys.serialOf(name));
        EXPECT_EQ(info.keyringWatchId, ++watchId);
        EXPECT_EQ(info.inotifyWatchId, 1);
        EXPECT_EQ(openDescriptors().at(info.inotifyFd), "anon_inode:inotify");
        EXPECT_TRUE(openDescriptors().at(info.readFd).starts_with("pipe:"));
        EXPECT_EQ(openDescriptors().at(info.readFd), openDescriptors().at(info.writeFd));
        EXPECT_NE(info.readFd, info.writeFd);
    }
}

TEST_F(KeyringWatcher, OpensTheDirectoryWatchBeforeTheKeyringWatch) {
    keepOnly(".ima");
    start(true);
    const KeyringWatcherInfo info = sm->watcherInfos(".ima");
    EXPECT_EQ(calls.callsOf({"inotify_init1", "inotify_add_watch", "pipe2", "ioctl"}),
              (std::vector<std::string>{
                  "inotify_init1 0x800",
                  "inotify_add_watch " + number(info.inotifyFd) + " /etc/keys/ima 0x2c8",
                  "pipe2 0x80", "ioctl " + number(info.writeFd) + " 0x5760 256"}));
}

TEST_F(KeyringWatcher, LeavesAKeyringAloneThatTheKernelDoesNotHave) {
    keys.removeKeyring(".ima");
    put("a", "first");
    start(true);
    EXPECT_EQ(traces(1),
              TraceLines{failure("find_key_by_type_and_desc", ENOKEY) + ", keyring .ima"});
    EXPECT_FALSE(sm->watcherInfos(".ima"));
    EXPECT_FALSE(sm->inotifyDescriptors().has(".ima"));
    EXPECT_FALSE(sm->keyringWatchFileDescriptors().has(".ima"));
    ASSERT_TRUE(keyColl()) << "the empty collection stays";
    EXPECT_TRUE(keyColl()->key().empty());
    EXPECT_TRUE(keyColl()->fileToDescription().empty()) << "its directory is not scanned";
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(traces()[1], "5 createWatcher: .ima");
    EXPECT_EQ(traces()[3], "5 createWatcher: .secondary_trusted_keys");
}

TEST_F(KeyringWatcher, ProcessesTheOtherThreeKeyringsWithoutIma) {
    keys.removeKeyring(".ima");
    const std::string file = put("a", "first", ".secondary_trusted_keys");
    start(true);
    EXPECT_EQ(sm->watcherInfos().size(), 3U);
    EXPECT_EQ(keys.descriptionsOf(".secondary_trusted_keys"),
              std::vector<std::string>{described("first")});
    EXPECT_EQ(keys.watchIdsOf(".secondary_trusted_keys"), std::vector<int>{2})
        << "the keyring that was not found still counts";
    EXPECT_EQ(keys.watchIdsOf(".machine"), std::vector<int>{4});
}

TEST_F(KeyringWatcher, NamesTheCauseOfALookUpThatFails) {
    keys.failNth("find_key_by_type_and_desc", 2, EPERM);
    start(true);
    EXPECT_EQ(traces(1), TraceLines{failure("find_key_by_type_and_desc", EPERM) +
                                    ", keyring .secondary_trusted_keys"});
    EXPECT_EQ(sm->watcherInfos().size(), 3U);
}

TEST_F(KeyringWatcher, StoresTheRecordAlsoWhenTheDirectoryWatchFailed) {
    calls.failNext("inotify_init1", EMFILE);
    const std::string file = put("a", "first");
    start(true);
    const KeyringWatcherInfo info = sm->watcherInfos(".ima");
    EXPECT_EQ(info.inotifyFd, 0);
    EXPECT_EQ(info.inotifyWatchId, 0);
    EXPECT_EQ(info.keyringId, keys.serialOf(".ima"));
    EXPECT_NE(info.readFd, 0);
    EXPECT_EQ(traces(1).size(), 1U);
    EXPECT_EQ(keyColl()->fileToDescription(file), Orvo::String(described("first")))
        << "the work for the keyring goes on";
}

TEST_F(KeyringWatcher, StoresTheRecordAlsoWhenTheKeyringWatchFailed) {
    keys.failNext("keyctl_watch_key", EOPNOTSUPP);
    const key_serial_t key = keys.addKey(".ima", "d");
    start(true);
    const KeyringWatcherInfo info = sm->watcherInfos(".ima");
    EXPECT_EQ(info.readFd, 0);
    EXPECT_EQ(info.writeFd, 0);
    EXPECT_EQ(info.keyringWatchId, 1);
    EXPECT_NE(info.inotifyFd, 0);
    EXPECT_NE(keyColl()->key(key), nullptr);
}

TEST_F(KeyringWatcher, StoresTheRecordAlsoWhenBothWatchesFailed) {
    calls.failNext("inotify_add_watch", ENOSPC);
    calls.failNext("pipe2", ENFILE);
    start(true);
    KeyringWatcherInfo expected(".ima");
    expected.keyringId = keys.serialOf(".ima");
    const KeyringWatcherInfo info = sm->watcherInfos(".ima");
    EXPECT_TRUE(KeyringWatcherInfo::isEq(&info, &expected)) << info;
}

TEST_F(KeyringWatcher, UnlinksTheKeyOfARemovedFileAlsoWhenTheKeyringWatchFailed) {
    keys.addKey(".ima", described("first"));
    const std::string path = put("a", "first");
    calls.failNext("pipe2", EMFILE);
    start();
    ASSERT_EQ(sm->watcherInfos(".ima").readFd, 0);
    std::filesystem::remove(path);
    dispatch();
    EXPECT_TRUE(keys.keysOf(".ima").empty());
}

TEST_F(KeyringWatcher, FindsNoKeysInAnEmptyKeyringAndLoadsEveryCertificate) {
    put("a", "first");
    put("b", "second");
    start(true);
    EXPECT_EQ(tracedTimes("5 createWatcher: keyctl_read_alloc:0 bytes"), 4U);
    EXPECT_EQ(tracedTimes("5 createWatcher: Found 0 existing keys"), 4U);
    EXPECT_EQ(keys.keysOf(".ima").size(), 2U);
}

TEST_F(KeyringWatcher, CountsSixBytesAsOneKey) {
    const key_serial_t key = keys.addKey(".ima", "d");
    std::vector<std::uint8_t> bytes = payload({key});
    bytes.insert(bytes.end(), {0x01, 0x02});
    keys.scriptPayload(".ima", bytes);
    start(true);
    EXPECT_TRUE(traced("5 createWatcher: keyctl_read_alloc:6 bytes"));
    EXPECT_TRUE(traced("5 createWatcher: Found 1 existing keys"));
    EXPECT_EQ(keyColl()->key().size(), 1U);
    EXPECT_NE(keyColl()->key(key), nullptr);
}

TEST_F(KeyringWatcher, CountsThreeBytesAsNoKey) {
    keys.scriptPayload(".ima", {1, 2, 3});
    start(true);
    EXPECT_TRUE(traced("5 createWatcher: keyctl_read_alloc:3 bytes"));
    EXPECT_EQ(tracedTimes("5 createWatcher: Found 0 existing keys"), 4U);
}

TEST_F(KeyringWatcher, RecordsTheKeysInTheBuffersOrder) {
    const key_serial_t a = keys.addKey(".ima", "a");
    const key_serial_t b = keys.addKey(".ima", "b");
    keys.scriptPayload(".ima", payload({b, a}));
    keepOnly(".ima");
    start(true);
    TraceLines lines = tracesOf("createWatcher");
    lines.resize(8);
    lines.erase(lines.begin(), lines.begin() + 4);
    EXPECT_EQ(
        lines,
        (TraceLines{"5 createWatcher: Processing existing key " + number(b), created(b, "b"),
                    "5 createWatcher: Processing existing key " + number(a), created(a, "a")}));
    EXPECT_EQ(keyColl()->key(a)->description, "a");
    EXPECT_EQ(keyColl()->key(b)->description, "b");
}

TEST_F(KeyringWatcher, SkipsANestedKeyring) {
    keys.link(".secondary_trusted_keys", keys.serialOf(".machine"));
    const key_serial_t key = keys.addKey(".secondary_trusted_keys", "d");
    start(true);
    const auto secondary = keyColl(".secondary_trusted_keys");
    EXPECT_TRUE(
        traced("5 createWatcher: Processing existing key " + number(keys.serialOf(".machine"))));
    EXPECT_TRUE(traced("5 getKey: Key is a keyring, ignoring"));
    EXPECT_EQ(secondary->key().size(), 1U);
    EXPECT_NE(secondary->key(key), nullptr) << "the next key is processed";
}

TEST_F(KeyringWatcher, SkipsAKeyThatVanishedMeanwhile) {
    const key_serial_t key = keys.addKey(".ima", "d");
    keys.scriptPayload(".ima", payload({123, key}));
    start(true);
    EXPECT_EQ(traces(1),
              TraceLines{std::string("1 getKey: keyctl_describe_alloc: ") + std::strerror(ENOKEY)});
    EXPECT_EQ(keyColl()->key().size(), 1U);
    EXPECT_NE(keyColl()->key(key), nullptr);
}

TEST_F(KeyringWatcher, RecordsBothOfTwoKeysWithOneDescription) {
    const key_serial_t a = keys.addKey(".ima", "same");
    const key_serial_t b = keys.addKey(".ima", "same", {"user", 0, 0, usualKey});
    start(true);
    EXPECT_NE(keyColl()->key(a), nullptr);
    EXPECT_NE(keyColl()->key(b), nullptr);
}

TEST_F(KeyringWatcher, LeavesAKeyWithoutAFileInTheKeyringAndUnmapped) {
    const key_serial_t key = keys.addKey(".ima", described("nobody"));
    start(true);
    EXPECT_EQ(keys.keysOf(".ima"), std::vector<key_serial_t>{key});
    EXPECT_NE(keyColl()->key(key), nullptr);
    EXPECT_TRUE(keyColl()->descriptionToFile().empty());
    EXPECT_TRUE(keyColl()->fileToDescription().empty());
    EXPECT_TRUE(keyCalls("keyctl_unlink").empty());
}

TEST_F(KeyringWatcher, ScansTheDirectoryAlsoWhenTheKeysCannotBeRead) {
    const key_serial_t key = keys.addKey(".ima", described("present"));
    const std::string file = put("present", "present");
    keys.failNext("keyctl_read_alloc", EACCES);
    start(true);
    EXPECT_EQ(traces(1), TraceLines{failure("keyctl_read_alloc", EACCES)});
    EXPECT_EQ(tracedTimes("5 createWatcher: Found 0 existing keys"), 3U) << "not for this one";
    EXPECT_TRUE(keyCalls("keyctl_describe_alloc " + number(key)).empty());
    EXPECT_TRUE(traced("5 createWatcher: Loading key " + file + " as it was not in the keyring"));
    EXPECT_EQ(keyCalls("add_key").size(), 1U) << "every certificate is loaded";
    EXPECT_EQ(keyColl()->fileToDescription(file), Orvo::String(described("present")));
}

} // namespace

} // namespace Vestrel::Tests
