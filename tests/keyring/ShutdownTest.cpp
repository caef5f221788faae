// SPDX-License-Identifier: Apache-2.0
// Tests the end of the keyring state machine: what it closes, in which order, and what it leaves.
#include "tests/keyring/CertificateDirectories.h"
#include "tests/keyring/LibraryCalls.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace Vestrel::Tests {

namespace {

using Calls = std::vector<std::string>;

class Shutdown : public CertificateDirectories {
protected:
    static std::string number(long value) { return std::to_string(value); }

    // The numbers of the records, in the order in which they are to be closed.
    std::vector<int> recorded() const {
        std::vector<int> all;
        for (auto info = sm->watcherInfos().iterator(); info; ++info) {
            for (const int descriptor : {info->readFd, info->writeFd, info->inotifyFd}) {
                if (descriptor != 0) {
                    all.push_back(descriptor);
                }
            }
        }
        return all;
    }

    static Calls closeCalls(const std::vector<int>& descriptors) {
        Calls expected;
        for (const int descriptor : descriptors) {
            expected.push_back("close " + number(descriptor));
        }
        return expected;
    }

    std::vector<KeyringWatcherInfo> records() const {
        std::vector<KeyringWatcherInfo> all;
        for (auto info = sm->watcherInfos().iterator(); info; ++info) {
            all.push_back(*info);
        }
        return all;
    }

    static bool areEqual(const KeyringWatcherInfo& one, const KeyringWatcherInfo& other) {
        return KeyringWatcherInfo::isEq(&one, &other);
    }

    // A state machine whose only record is this one.
    void startWith(const KeyringWatcherInfo& info) {
        for (const char* const name : IntegrityKeyringSm::keyringNames) {
            keys.removeKeyring(name);
        }
        start();
        sm->watcherInfosIs(info);
    }

    static int openSomething() { return open("/", O_RDONLY | O_CLOEXEC); }

    static bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }
};

using CloseAllFd = Shutdown;

TEST_F(Shutdown, TracesItsTwoStepsAndNothingElse) {
    start();
    stop();
    EXPECT_EQ(traces(), (TraceLines{"5 handleDelete: ", "5 closeAllFd: "}));
}

TEST_F(Shutdown, ClosesReadEndWriteEndAndInotifyOfEachRecord) {
    start();
    const std::vector<int> descriptors = recorded();
    ASSERT_EQ(descriptors.size(), 12U);
    stop();
    EXPECT_EQ(calls.callsOf({"close"}), closeCalls(descriptors));
    for (const int descriptor : descriptors) {
        EXPECT_FALSE(isOpen(descriptor));
    }
    EXPECT_EQ(keys.openQueues(), 0U);
}

TEST_F(Shutdown, SwitchesNotificationsOffBeforeItCloses) {
    start();
    const RecordedWatches recordedWatches;
    const std::vector<int> descriptors = recorded();
    stop();
    Calls atTheLoop = calls.callsOf({"epoll_ctl"});
    EXPECT_EQ(atTheLoop.size(), 8U) << "two watches for each keyring";
    const Calls all = calls.callsOf({"epoll_ctl", "close"});
    EXPECT_TRUE(std::equal(atTheLoop.begin(), atTheLoop.end(), all.begin())) << all.front();
    EXPECT_TRUE(std::ranges::all_of(
        atTheLoop, [](const auto& call) { return call.starts_with("epoll_ctl DEL "); }));
    EXPECT_EQ(all.size(), 8U + 12U);
}

TEST_F(Shutdown, HasNotificationsOffWhenItsHandlerRuns) {
    start();
    const IntegrityKeyringSm* const dying = sm.get();
    int seen = 0;
    onTrace = [&](const std::string& line) {
        if (line == "5 handleDelete: ") {
            ++seen;
            EXPECT_FALSE(dying->hasNotificationActive());
            EXPECT_FALSE(dying->zombieReactors());
            EXPECT_TRUE(dying->keyLoader());
            EXPECT_EQ(dying->inotifyDescriptors().size(), 4U);
        }
    };
    stop();
    onTrace = nullptr;
    EXPECT_EQ(seen, 1);
}

TEST_F(Shutdown, EndsItsSubscriptions) {
    start();
    const auto inotify = sm->inotifyDescriptors().value(".ima");
    const auto keyringWatch = sm->keyringWatchFileDescriptors().value(".ima");
    EXPECT_TRUE(inotify->publisher().hasActiveSubscriber());
    EXPECT_TRUE(keyringWatch->publisher().hasActiveSubscriber());
    stop();
    clear();
    for (const auto& descriptor : {inotify, keyringWatch}) {
        EXPECT_EQ(descriptor->refCount(), 2U) << "nobody but the test";
        EXPECT_FALSE(descriptor->publisher().hasActiveSubscriber());
        descriptor->publisher().publish(Zell::FileDescriptor::readableNotificationField,
                                        std::int64_t{0}, std::int64_t{1});
    }
    EXPECT_EQ(traces(), TraceLines{});
}

TEST_F(Shutdown, ReleasesTheKeyLoader) {
    start();
    const auto loader = sm->keyLoader();
    stop();
    EXPECT_EQ(loader->refCount(), 1U);
}

TEST_F(Shutdown, LeavesKeysAndTheKeyringCollectionAsTheyAre) {
    const std::string file = put("a", "first");
    start();
    dispatch();
    clear();
    const auto held = keyColl();
    stop();
    EXPECT_EQ(keys.calls(), Calls{}) << "no watch is ended and no key unlinked by a call";
    EXPECT_EQ(keys.descriptionsOf(".ima"), Calls{described("first")});
    EXPECT_EQ(coll->refCount(), 1U);
    EXPECT_EQ(coll->keyringCount(), 4U);
    EXPECT_EQ(keyColl(), held);
    EXPECT_EQ(held->key().size(), 1U);
    EXPECT_EQ(held->fileToDescription(file), Orvo::String(described("first")));
}

TEST_F(Shutdown, EndsTheWatchesByClosing) {
    start();
    stop();
    EXPECT_TRUE(keys.watchIdsOf(".ima").empty());
    EXPECT_TRUE(calls.callsOf({"ioctl", "inotify_add_watch", "inotify_rm_watch", "read"}).empty());
}

TEST_F(Shutdown, ClosesNothingForAKeyringThatWasNotFound) {
    keepOnly(".machine");
    start();
    const std::vector<int> descriptors = recorded();
    ASSERT_EQ(descriptors.size(), 3U);
    stop();
    EXPECT_EQ(calls.callsOf({"close"}), closeCalls(descriptors));
}

TEST_F(Shutdown, ClosesOnlyTheInotifyDescriptorWhereTheKeyringWatchFailed) {
    keepOnly(".ima");
    calls.failNext("pipe2", EMFILE);
    start();
    const KeyringWatcherInfo info = sm->watcherInfos(".ima");
    stop();
    EXPECT_EQ(calls.callsOf({"close"}), closeCalls({info.inotifyFd}));
}

TEST_F(Shutdown, ClosesOnlyThePipeWhereTheDirectoryWatchFailed) {
    keepOnly(".ima");
    calls.failNext("inotify_init1", EMFILE);
    start();
    const KeyringWatcherInfo info = sm->watcherInfos(".ima");
    stop();
    EXPECT_EQ(calls.callsOf({"close"}), closeCalls({info.readFd, info.writeFd}));
}

TEST_F(Shutdown, HandleDeleteClosesAndChangesNoCollection) {
    start();
    const Calls closes = closeCalls(recorded());
    const std::vector<KeyringWatcherInfo> before = records();
    sm->handleDelete();
    EXPECT_EQ(traces(), (TraceLines{"5 handleDelete: ", "5 closeAllFd: "}));
    EXPECT_EQ(calls.callsOf({"close"}), closes);
    EXPECT_EQ(before.size(), 4U);
    EXPECT_TRUE(std::ranges::equal(records(), before, areEqual)) << "the records keep the numbers";
    EXPECT_EQ(sm->inotifyDescriptors().size(), 4U);
    EXPECT_EQ(sm->keyringWatchFileDescriptors().size(), 4U);
    sm->watcherInfosDelAll(); // so that nothing is closed twice
}

TEST_F(CloseAllFd, TracesThatTheReadOrWriteEndDoesNotClose) {
    keepOnly(".ima");
    start();
    const KeyringWatcherInfo info = sm->watcherInfos(".ima");
    calls.failNth("close", 1, EIO);
    calls.failNth("close", 2, EINTR);
    stop();
    EXPECT_EQ(traces(1), (TraceLines{"1 closeAllFd: close readFd: " + number(info.readFd) + ", " +
                                         std::strerror(EIO),
                                     "1 closeAllFd: close writeFd: " + number(info.writeFd) + ", " +
                                         std::strerror(EINTR)}));
    EXPECT_EQ(calls.callsOf({"close"}), closeCalls({info.readFd, info.writeFd, info.inotifyFd}))
        << "once each, whatever it returned";
}

TEST_F(CloseAllFd, GoesOnWithTheNextRecordAfterAFailure) {
    start();
    const Calls closes = closeCalls(recorded());
    for (std::size_t turn = 1; turn <= closes.size(); ++turn) {
        calls.failNth("close", turn, EIO);
    }
    stop();
    EXPECT_EQ(calls.callsOf({"close"}), closes);
    EXPECT_EQ(traces(1).size(), 8U) << "read and write end of four records";
    EXPECT_EQ(calls.pending(), 0U);
}

TEST_F(CloseAllFd, TracesNothingWhenTheInotifyDescriptorFailsToClose) {
    KeyringWatcherInfo info("foreign");
    info.inotifyFd = openSomething();
    startWith(info);
    calls.failNext("close", EIO);
    stop();
    EXPECT_EQ(calls.callsOf({"close"}), closeCalls({info.inotifyFd}));
    EXPECT_EQ(traces(1), TraceLines{});
}

TEST_F(CloseAllFd, TracesNothingForAnInotifyDescriptorThatIsClosedAlready) {
    KeyringWatcherInfo info("foreign");
    info.inotifyFd = openSomething();
    close(info.inotifyFd);
    startWith(info);
    stop();
    EXPECT_EQ(calls.callsOf({"close"}), closeCalls({info.inotifyFd}));
    EXPECT_EQ(traces(1), TraceLines{});
}

TEST_F(CloseAllFd, TracesWhenClosingTheInotifyDescriptorReturnsOne) {
    KeyringWatcherInfo info("foreign");
    info.inotifyFd = openSomething();
    startWith(info);
    calls.answerNext("close", 1, EIO);
    stop();
    EXPECT_EQ(traces(1), TraceLines{"1 closeAllFd: close inotifyFd: " + number(info.inotifyFd) +
                                    ", " + std::strerror(EIO)});
}

TEST_F(CloseAllFd, TracesNothingWhenClosingAnEndOfThePipeReturnsOne) {
    KeyringWatcherInfo info("foreign");
    info.readFd = openSomething();
    startWith(info);
    calls.answerNext("close", 1, EIO);
    stop();
    EXPECT_EQ(traces(1), TraceLines{});
    EXPECT_EQ(calls.pending(), 0U);
}

TEST_F(CloseAllFd, ClosesNegativeNumbersToo) {
    KeyringWatcherInfo info("foreign");
    info.readFd = -5;
    info.writeFd = -6;
    info.inotifyFd = -7;
    startWith(info);
    stop();
    EXPECT_EQ(calls.callsOf({"close"}), closeCalls({-5, -6, -7}));
    EXPECT_EQ(
        traces(1),
        (TraceLines{std::string("1 closeAllFd: close readFd: -5, ") + std::strerror(EBADF),
                    std::string("1 closeAllFd: close writeFd: -6, ") + std::strerror(EBADF)}));
}

TEST_F(CloseAllFd, SkipsOnlyZero) {
    startWith(KeyringWatcherInfo("foreign"));
    stop();
    EXPECT_EQ(calls.callsOf({"close"}), Calls{});
    EXPECT_EQ(traces(), (TraceLines{"5 handleDelete: ", "5 closeAllFd: "}));
    EXPECT_TRUE(isOpen(0));
}

TEST_F(CloseAllFd, DoesNotTouchTheOtherNumbersOfARecord) {
    KeyringWatcherInfo info("foreign");
    std::array<int, 3> others{};
    std::ranges::generate(others, openSomething);
    info.keyringId = others[0];
    info.keyringWatchId = others[1];
    info.inotifyWatchId = others[2];
    startWith(info);
    stop();
    for (const int descriptor : others) {
        EXPECT_TRUE(isOpen(descriptor));
        close(descriptor);
    }
}

TEST_F(CloseAllFd, WithoutRecordsOnlyTracesItself) {
    keepOnly("");
    start();
    sm->closeAllFd();
    EXPECT_EQ(traces(), TraceLines{"5 closeAllFd: "});
    EXPECT_EQ(calls.calls(), Calls{});
}

} // namespace

} // namespace Vestrel::Tests
