// SPDX-License-Identifier: Apache-2.0
// Opening the watch on a certificate directory.
#include "tests/keyring/WatchTest.h"

#include <filesystem>

namespace Vestrel::Tests {

namespace {

class DirectoryWatch : public WatchTest {
protected:
    DirectoryWatch() {
        std::filesystem::create_directory("/etc/keys/platform");
        clear();
    }

    // Opens the watch and leaves the descriptor to the state machine.
    KeyringWatcherInfo open(const KeyringWatcherInfo& info) {
        const KeyringWatcherInfo result = sm->createInotifyWatch(info);
        sm->watcherInfosIs(result);
        return result;
    }

    KeyringWatcherInfo openPlatform() { return open(KeyringWatcherInfo(".platform")); }
};

TEST_F(DirectoryWatch, CallsTheKernelInOrder) {
    const KeyringWatcherInfo info = openPlatform();
    const std::string fd = std::to_string(info.inotifyFd);
    EXPECT_EQ(calls.calls(),
              (Texts{"inotify_init1 0x800", "inotify_add_watch " + fd + " /etc/keys/platform 0x2c8",
                     "read " + fd + " 4096"}));
}

TEST_F(DirectoryWatch, TracesItsStepsAndRunsTheHandlerOnce) {
    const std::string fd = std::to_string(openPlatform().inotifyFd);
    EXPECT_EQ(
        traces(),
        (TraceLines{"5 createInotifyWatch: .platform",
                    "5 createInotifyWatch: Creating watch on directory /etc/keys/platform",
                    "5 handleInotify: .platform", "5 handleInotify: readFd: " + fd + ", size: 4096",
                    "5 handleInotify: No more to read"}));
}

TEST_F(DirectoryWatch, FillsInTheInotifyFieldsAndKeepsTheOthers) {
    KeyringWatcherInfo info = filled(".platform");
    const KeyringWatcherInfo result = sm->createInotifyWatch(info);
    EXPECT_GT(result.inotifyFd, 2);
    EXPECT_NE(result.inotifyFd, info.inotifyFd);
    EXPECT_EQ(result.inotifyWatchId, 1);
    info.inotifyFd = result.inotifyFd;
    info.inotifyWatchId = result.inotifyWatchId;
    EXPECT_TRUE(KeyringWatcherInfo::isEq(&result, &info));
    sm->inotifyDescriptorsDel(".platform");
    close(result.inotifyFd);
}

TEST_F(DirectoryWatch, RegistersAReadableDescriptorNamedLikeTheKeyring) {
    const KeyringWatcherInfo info = openPlatform();
    const auto* const registered = sm->inotifyDescriptors().find(".platform");
    ASSERT_NE(registered, nullptr);
    expectConfigured(**registered, ".platform", info.inotifyFd);
    EXPECT_TRUE((*registered)->publisher().hasActiveSubscriber());
}

TEST_F(DirectoryWatch, OpensADescriptorThatProgramsInherit) {
    EXPECT_EQ(fcntl(openPlatform().inotifyFd, F_GETFD), 0);
}

TEST_F(DirectoryWatch, AsksForNoDirectory) {
    std::filesystem::remove("/etc/keys/platform");
    write("/etc/keys/platform", "a file");
    EXPECT_NE(openPlatform().inotifyFd, 0);
}

TEST_F(DirectoryWatch, ReturnsTheRecordUnchangedWithoutAnInotifyInstance) {
    const KeyringWatcherInfo info = filled(".platform");
    calls.failNext("inotify_init1", EMFILE);
    const KeyringWatcherInfo result = sm->createInotifyWatch(info);
    EXPECT_EQ(traces(), (TraceLines{"5 createInotifyWatch: .platform",
                                    "1 createInotifyWatch: inotify_init1: Too many open files"}));
    EXPECT_TRUE(KeyringWatcherInfo::isEq(&result, &info));
    EXPECT_EQ(calls.calls(), Texts{"inotify_init1 0x800"});
    EXPECT_FALSE(sm->inotifyDescriptors().has(".platform"));
}

TEST_F(DirectoryWatch, ClosesTheInstanceWhenTheDirectoryDoesNotExist) {
    std::filesystem::remove("/etc/keys/platform");
    const KeyringWatcherInfo info = filled(".platform");
    const KeyringWatcherInfo result = sm->createInotifyWatch(info);
    EXPECT_EQ(traces(),
              (TraceLines{"5 createInotifyWatch: .platform",
                          "5 createInotifyWatch: Creating watch on directory /etc/keys/platform",
                          "1 createInotifyWatch: inotify_add_watch: No such file or directory"}));
    EXPECT_TRUE(KeyringWatcherInfo::isEq(&result, &info));
    EXPECT_FALSE(sm->inotifyDescriptors().has(".platform"));
    ASSERT_EQ(calls.calls().size(), 3U);
    const int opened = firstNumber(calls.calls()[1]);
    EXPECT_EQ(calls.calls()[2], "close " + std::to_string(opened));
    EXPECT_EQ(fcntl(opened, F_GETFD), -1);
}

TEST_F(DirectoryWatch, TellsTheCauseOfTheWatchNotThatOfTheClose) {
    calls.failNext("inotify_add_watch", ENOSPC);
    calls.failNext("close", EIO);
    sm->createInotifyWatch(KeyringWatcherInfo(".platform"));
    EXPECT_EQ(traces().back(), "1 createInotifyWatch: inotify_add_watch: No space left on device");
}

TEST_F(DirectoryWatch, TellsTheCauseOfTheWatchWhateverATraceLeavesInErrno) {
    std::filesystem::remove("/etc/keys/platform");
    onTrace = [](const std::string&) { errno = EIO; };
    sm->createInotifyWatch(KeyringWatcherInfo(".platform"));
    onTrace = nullptr;
    EXPECT_EQ(traces().back(),
              "1 createInotifyWatch: inotify_add_watch: No such file or directory");
}

TEST_F(DirectoryWatch, IsOnRecordOnlyAfterItsHandlerHasRun) {
    keys.keyring(".platform");
    bool handled = false;
    bool onRecord = true;
    onTrace = [&](const std::string& line) {
        if (line == "5 handleInotify: .platform") {
            handled = sm->inotifyDescriptors().has(".platform");
            onRecord = sm->watcherInfos().has(".platform");
        }
    };
    sm->createWatcher(".platform");
    EXPECT_TRUE(handled);
    EXPECT_FALSE(onRecord);
    EXPECT_TRUE(sm->watcherInfos().has(".platform"));
}

TEST_F(DirectoryWatch, IsOpenedForEachKeyringUnderItsName) {
    Texts names;
    for (auto each = sm->inotifyDescriptors().iterator(); each; ++each) {
        names.emplace_back(each.key().view());
        EXPECT_EQ((*each)->name(), each.key());
        EXPECT_EQ((*each)->descriptor(), sm->watcherInfos(each.key()).inotifyFd);
    }
    EXPECT_EQ(names,
              (Texts{".ima", ".secondary_trusted_keys", ".builtin_trusted_keys", ".machine"}));
}

} // namespace

} // namespace Vestrel::Tests
