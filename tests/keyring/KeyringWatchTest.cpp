// SPDX-License-Identifier: Apache-2.0
// Opening the watch queue of a keyring.
#include "keyring/KeyringCounters.h"
#include "tests/keyring/WatchTest.h"

#include <filesystem>

namespace Vestrel::Tests {

namespace {

class KeyringWatch : public WatchTest {
protected:
    KeyringWatch() {
        platform_.keyringId = keys.keyring(".platform");
        coll->keyringIs(".platform"); // the fifth member
        clear();
    }

    KeyringWatcherInfo open() {
        const KeyringWatcherInfo result = sm->createKeyringWatch(platform_);
        sm->watcherInfosIs(result);
        return result;
    }

    // The two ends that a failed attempt has opened, from its first two traces.
    std::pair<std::string, std::string> ends() const {
        const std::string readLine = "5 createKeyringWatch: readFd: ";
        const std::string writeLine = "5 createKeyringWatch: writeFd: ";
        const TraceLines lines = traces();
        EXPECT_GE(lines.size(), 2U);
        EXPECT_TRUE(lines.at(0).starts_with(readLine)) << lines.at(0);
        EXPECT_TRUE(lines.at(1).starts_with(writeLine)) << lines.at(1);
        return {lines.at(0).substr(readLine.size()), lines.at(1).substr(writeLine.size())};
    }

    // The last lines of a failed attempt, without those that name the ends.
    TraceLines linesAfterTheEnds() const {
        TraceLines lines = traces();
        lines.erase(lines.begin(), lines.begin() + 2);
        return lines;
    }

    void expectNothingOpen() const {
        EXPECT_FALSE(sm->keyringWatchFileDescriptors().has(".platform"));
        EXPECT_EQ(keys.openQueues(), 4U);
        EXPECT_EQ(keys.watchIdsOf(".platform"), std::vector<int>{});
    }

    std::vector<std::vector<int>> watchIds() const {
        std::vector<std::vector<int>> ids;
        for (const char* const name : IntegrityKeyringSm::keyringNames) {
            ids.push_back(keys.watchIdsOf(name));
        }
        return ids;
    }

    // As the counters tell it.
    static std::string lastFailure() { return KeyringCounters::of(".platform").lastFailure; }

    KeyringWatcherInfo platform_{".platform"};
};

TEST_F(KeyringWatch, CallsTheKernelInOrder) {
    const KeyringWatcherInfo info = open();
    const std::string readEnd = std::to_string(info.readFd);
    const std::string writeEnd = std::to_string(info.writeFd);
    EXPECT_EQ(calls.calls(), (Texts{"pipe2 0x80", "ioctl " + writeEnd + " 0x5760 256",
                                    "read " + readEnd + " 16"}));
    EXPECT_EQ(keys.calls(),
              Texts{"keyctl_watch_key " + std::to_string(info.keyringId) + " " + writeEnd + " 5"});
}

TEST_F(KeyringWatch, TracesItsStepsAndRunsTheHandlerOnce) {
    const KeyringWatcherInfo info = open();
    EXPECT_EQ(
        traces(),
        (TraceLines{"5 createKeyringWatch: readFd: " + std::to_string(info.readFd),
                    "5 createKeyringWatch: writeFd: " + std::to_string(info.writeFd),
                    "5 createKeyringWatch: .platform assigned watchId 5",
                    "5 handleKeyringWatch: .platform", "5 handleKeyringWatch: No more to read"}));
}

TEST_F(KeyringWatch, FillsInItsFieldsAndKeepsTheOthers) {
    KeyringWatcherInfo info = filled(".platform");
    info.keyringId = platform_.keyringId;
    const KeyringWatcherInfo result = sm->createKeyringWatch(info);
    const NotificationQueue* const queue = keys.queueOf(result.readFd);
    ASSERT_NE(queue, nullptr);
    EXPECT_EQ(queue->readEnd(), result.readFd);
    EXPECT_EQ(queue->writeEnd(), result.writeFd);
    EXPECT_EQ(result.keyringWatchId, 5);
    EXPECT_EQ(result.keyringName, ".platform");
    EXPECT_EQ(result.keyringId, info.keyringId);
    EXPECT_EQ(result.inotifyFd, 905);
    EXPECT_EQ(result.inotifyWatchId, 906);
    sm->keyringWatchFileDescriptorsDel(".platform");
    close(result.readFd);
    close(result.writeFd);
}

TEST_F(KeyringWatch, RegistersAReadableDescriptorNamedLikeTheKeyring) {
    const KeyringWatcherInfo info = open();
    const auto* const registered = sm->keyringWatchFileDescriptors().find(".platform");
    ASSERT_NE(registered, nullptr);
    expectConfigured(**registered, ".platform", info.readFd);
    EXPECT_TRUE((*registered)->publisher().hasActiveSubscriber());
}

TEST_F(KeyringWatch, KeepsTheWriteEndOpen) {
    EXPECT_NE(fcntl(open().writeFd, F_GETFD), -1);
}

TEST_F(KeyringWatch, NumbersTheKeyringsInTheirOrderFromOne) {
    EXPECT_EQ(watchIds(), (std::vector<std::vector<int>>{{1}, {2}, {3}, {4}}));
}

TEST_F(KeyringWatch, SkipsTheNumberOfAKeyringThatTheKernelDoesNotHave) {
    stop();
    keys.removeKeyring(".secondary_trusted_keys");
    start();
    EXPECT_EQ(keys.watchIdsOf(".ima"), std::vector<int>{1});
    EXPECT_EQ(keys.watchIdsOf(".builtin_trusted_keys"), std::vector<int>{3});
    EXPECT_EQ(keys.watchIdsOf(".machine"), std::vector<int>{4});
    EXPECT_EQ(sm->watcherInfos(".machine").keyringWatchId, 4);
}

TEST_F(KeyringWatch, CountsTheManagedKeyringsAtThatMoment) {
    coll->keyringIs(".one more");
    EXPECT_EQ(open().keyringWatchId, 6);
    EXPECT_EQ(keys.watchIdsOf(".platform"), std::vector<int>{6});
}

TEST_F(KeyringWatch, ReturnsTheRecordUnchangedWithoutAPipe) {
    const KeyringWatcherInfo info = filled(".platform");
    calls.failNext("pipe2", ENFILE);
    const KeyringWatcherInfo result = sm->createKeyringWatch(info);
    EXPECT_EQ(traces(), TraceLines{"1 createKeyringWatch: pipe2: Too many open files in system"});
    EXPECT_TRUE(KeyringWatcherInfo::isEq(&result, &info));
    EXPECT_EQ(calls.calls(), Texts{"pipe2 0x80"});
    EXPECT_EQ(keys.calls(), Texts{});
    expectNothingOpen();
}

TEST_F(KeyringWatch, ClosesBothEndsWhenTheQueueCannotBeSized) {
    const KeyringWatcherInfo info = filled(".platform");
    calls.failNext("ioctl", ENOMEM);
    const KeyringWatcherInfo result = sm->createKeyringWatch(info);
    EXPECT_EQ(linesAfterTheEnds(),
              TraceLines{"1 createKeyringWatch: ioctl IOC_WATCH_QUEUE_SET_SIZE: Cannot allocate "
                         "memory"});
    const auto [readEnd, writeEnd] = ends();
    EXPECT_EQ(calls.calls(), (Texts{"pipe2 0x80", "ioctl " + writeEnd + " 0x5760 256",
                                    "close " + readEnd, "close " + writeEnd}));
    EXPECT_TRUE(KeyringWatcherInfo::isEq(&result, &info));
    EXPECT_EQ(keys.calls(), Texts{});
    expectNothingOpen();
}

TEST_F(KeyringWatch, ClosesBothEndsButKeepsTheIdWhenTheKeyringCannotBeWatched) {
    KeyringWatcherInfo info = filled(".platform");
    info.keyringId = platform_.keyringId;
    keys.failNext("keyctl_watch_key", EOPNOTSUPP);
    const KeyringWatcherInfo result = sm->createKeyringWatch(info);
    EXPECT_EQ(linesAfterTheEnds(),
              (TraceLines{"5 createKeyringWatch: .platform assigned watchId 5",
                          "1 createKeyringWatch: keyctl_watch_key: Operation not supported"}));
    const auto [readEnd, writeEnd] = ends();
    EXPECT_EQ(calls.calls(), (Texts{"pipe2 0x80", "ioctl " + writeEnd + " 0x5760 256",
                                    "close " + readEnd, "close " + writeEnd}));
    info.keyringWatchId = 5;
    EXPECT_TRUE(KeyringWatcherInfo::isEq(&result, &info));
    expectNothingOpen();
}

TEST_F(KeyringWatch, TellsTheCauseOfTheCallNotThatOfTheClose) {
    keys.failNext("keyctl_watch_key", EACCES);
    calls.failNth("close", 1, EIO);
    calls.failNth("close", 2, EIO);
    sm->createKeyringWatch(platform_);
    EXPECT_EQ(traces().back(), "1 createKeyringWatch: keyctl_watch_key: Permission denied");
    EXPECT_EQ(lastFailure(), "keyctl_watch_key: Permission denied");
}

TEST_F(KeyringWatch, TellsTheCauseOfTheSizingNotThatOfTheClose) {
    calls.failNext("ioctl", ENOMEM);
    calls.failNth("close", 1, EIO);
    calls.failNth("close", 2, EBADF);
    sm->createKeyringWatch(platform_);
    const std::string told = "ioctl IOC_WATCH_QUEUE_SET_SIZE: Cannot allocate memory";
    EXPECT_EQ(linesAfterTheEnds(), TraceLines{"1 createKeyringWatch: " + told});
    EXPECT_EQ(lastFailure(), told);
    expectNothingOpen();
}

TEST_F(KeyringWatch, IsStoredOnRecordAlsoWhenItFailed) {
    keys.failNext("keyctl_watch_key", EACCES);
    std::filesystem::create_directory("/etc/keys/platform");
    sm->createWatcher(".platform");
    const KeyringWatcherInfo info = sm->watcherInfos(".platform");
    EXPECT_EQ(info.readFd, 0);
    EXPECT_EQ(info.writeFd, 0);
    EXPECT_EQ(info.keyringWatchId, 5);
    EXPECT_NE(info.inotifyFd, 0);
}

TEST_F(KeyringWatch, IsOnRecordOnlyAfterItsHandlerHasRun) {
    bool handled = false;
    bool onRecord = true;
    onTrace = [&](const std::string& line) {
        if (line == "5 handleKeyringWatch: .platform") {
            handled = sm->keyringWatchFileDescriptors().has(".platform");
            onRecord = sm->watcherInfos().has(".platform");
        }
    };
    sm->createWatcher(".platform");
    EXPECT_TRUE(handled);
    EXPECT_FALSE(onRecord);
    EXPECT_TRUE(sm->watcherInfos().has(".platform"));
}

TEST_F(KeyringWatch, FollowsTheDirectoryWatch) {
    std::filesystem::create_directory("/etc/keys/platform");
    clear();
    sm->createWatcher(".platform");
    Texts names;
    for (const std::string& call :
         calls.callsOf({"inotify_init1", "inotify_add_watch", "pipe2", "ioctl"})) {
        names.push_back(call.substr(0, call.find(' ')));
    }
    EXPECT_EQ(names, (Texts{"inotify_init1", "inotify_add_watch", "pipe2", "ioctl"}));
}

} // namespace

} // namespace Vestrel::Tests
