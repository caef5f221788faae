// SPDX-License-Identifier: Apache-2.0
// Tests when drift is looked for, believed and acted upon.
#include "agent/DriftWatch.h"

#include "keyring/KeyringCounters.h"
#include "tests/keyring/CertificateDirectories.h"
#include "tests/keyring/InotifyBytes.h"

#include <sys/inotify.h>

#include <cerrno>
#include <utility>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

using std::chrono::seconds;

constexpr seconds hour{3600};

// The timers of the event loop are due at once, the clock of the waits moves by hand.
class DriftWatchTest : public CertificateDirectories {
protected:
    DriftWatchTest() {
        start();
        watch_ = std::make_unique<DriftWatch>(
            loop,
            DriftWatch::Host{[this]() -> IntegrityKeyringSm& { return *sm; },
                             [this](const Differences& found) { rebuild(found); },
                             [this] { return now_; }},
            DriftWatch::Times{.interval = seconds(0),
                              .confirmAfter = std::chrono::milliseconds(0)});
    }

    void rebuild(const Differences& found) {
        rebuilds_.push_back(found);
        watch_->lostEventsMakeUp();
        stop();
        start();
        watch_->rebuilt();
    }

    // One whole check: a look, a second one, and what follows.
    void check() {
        watch_->check();
        dispatch();
    }

    // A directory that no rebuild can read.
    static void breakForGood() {
        fs::remove_all(directory());
        write(directory(), "a file");
    }

    void clearUnannounced() {
        keys.clear(".ima");
        KeyringCounters::doubtObserverIs(nullptr); // nobody is told
        dispatch();
    }

    std::chrono::steady_clock::time_point now_{hour};
    std::vector<Differences> rebuilds_;
    std::unique_ptr<DriftWatch> watch_;
};

TEST_F(DriftWatchTest, LeavesAHealthyStateMachineAlone) {
    put("signer", "first");
    check();
    check();
    EXPECT_TRUE(rebuilds_.empty());
    EXPECT_EQ(watch_->record().looks, 2);
    EXPECT_EQ(watch_->record().recoveries, 0);
    EXPECT_TRUE(watch_->record().differences.empty());
}

TEST_F(DriftWatchTest, HandlesWhatIsWaitingBeforeItCompares) {
    put("signer", "first"); // nobody has run the loop since
    EXPECT_EQ(watch_->look(), Differences{});
    EXPECT_EQ(keyColl()->key().size(), 1U);
}

TEST_F(DriftWatchTest, TakesNoFileThatArrivesWhileItLooksForADifference) {
    bool isToCome = true;
    onTrace = [&](const std::string& line) { // the directory's events were handled just before
        if (std::exchange(isToCome, isToCome && line != "5 handleKeyringWatch: .ima") != isToCome) {
            put("signer", "first");
        }
    };
    EXPECT_EQ(watch_->look().size(), 1U) << "one look takes it for one";
    fs::remove(file("signer"));
    EXPECT_EQ(watch_->look(), Differences{});
    isToCome = true;
    EXPECT_EQ(watch_->lookTwice(), Differences{});
    EXPECT_FALSE(isToCome);
    onTrace = nullptr;
    keys.clear(".ima");
    EXPECT_EQ(watch_->lookTwice().size(), 1U) << "what stays is found";
}

TEST_F(DriftWatchTest, RebuildsWhatAClearLeft) {
    put("signer", "first");
    dispatch();
    clearUnannounced();
    check();
    ASSERT_EQ(rebuilds_.size(), 1U);
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
    EXPECT_EQ(watch_->record().recoveries, 1);
    EXPECT_NE(watch_->record().lastRecoveryTime, "");
    EXPECT_EQ(watch_->record().lastDifferences, summary(rebuilds_[0]));
    check();
    EXPECT_TRUE(watch_->record().differences.empty());
    EXPECT_EQ(rebuilds_.size(), 1U);
}

TEST_F(DriftWatchTest, LooksByItselfWhetherARebuildHasCured) {
    put("signer", "first");
    dispatch();
    clearUnannounced();
    check();
    ASSERT_EQ(rebuilds_.size(), 1U);
    dispatch();
    EXPECT_TRUE(watch_->record().differences.empty());
    EXPECT_EQ(watch_->record().looks, 3);
    breakForGood();
    check();
    dispatch();
    EXPECT_FALSE(watch_->record().differences.empty()) << "what no rebuild cures stays named";
}

TEST_F(DriftWatchTest, LooksByItselfWhenTheStateMachineMustDoubt) {
    put("signer", "first");
    dispatch();
    keys.clear(".ima");
    dispatch(); // the notification, the look, the second look, the rebuild
    EXPECT_EQ(rebuilds_.size(), 1U);
    EXPECT_EQ(keys.keysOf(".ima").size(), 1U);
}

TEST_F(DriftWatchTest, DoesNotBelieveWhatIsGoneAtTheSecondLook) {
    const std::string path = file("half-written.integrity-tmp");
    write(path, "");
    fs::create_hard_link(path, file("unannounced"));
    put("half-written.integrity-tmp", "first"); // both names carry a certificate now
    watch_->check();
    fs::remove(file("unannounced"));
    dispatch();
    EXPECT_TRUE(rebuilds_.empty());
    EXPECT_EQ(watch_->record().looks, 2);
}

TEST_F(DriftWatchTest, MakesUpForARemovalAmongLostEvents) {
    put("gone", "first");
    put("stays", "second");
    dispatch();
    calls.feedRead(sm->watcherInfos(".ima").inotifyFd,
                   inotifyBytes({.mask = IN_Q_OVERFLOW, .watch = -1}));
    calls.feedReadError(sm->watcherInfos(".ima").inotifyFd, EAGAIN);
    sm->handleInotify(".ima");
    fs::remove(file("gone"));
    std::array<char, 4096> lost{};
    ASSERT_GT(::read(sm->watcherInfos(".ima").inotifyFd, lost.data(), lost.size()), 0);
    dispatch();
    ASSERT_EQ(rebuilds_.size(), 1U);
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("second")});
}

TEST_F(DriftWatchTest, RebuildsNothingForAnOverflowThatLostNothingOfInterest) {
    put("signer", "first");
    dispatch();
    calls.feedRead(sm->watcherInfos(".ima").inotifyFd,
                   inotifyBytes({.mask = IN_Q_OVERFLOW, .watch = -1}));
    sm->handleInotify(".ima");
    dispatch();
    EXPECT_EQ(watch_->record().looks, 1);
    EXPECT_TRUE(rebuilds_.empty());
}

TEST_F(DriftWatchTest, RepeatsARebuildThatCuredNothingEverMoreRarely) {
    breakForGood();
    std::vector<int> at;
    for (int tick = 0; tick < 100; ++tick) {
        const std::size_t before = rebuilds_.size();
        check();
        if (rebuilds_.size() != before) {
            at.push_back(tick);
        }
        now_ += seconds(10);
    }
    EXPECT_EQ(at, (std::vector<int>{0, 1, 3, 7, 15, 31, 63}));
}

TEST_F(DriftWatchTest, RebuildsAgainForWhatIsNewBesideWhatCannotBeCured) {
    breakForGood();
    for (int i = 0; i < 40; ++i) {
        check();
        now_ += seconds(10);
    }
    const std::size_t before = rebuilds_.size();
    put("signer", "first", ".secondary_trusted_keys");
    dispatch();
    keys.clear(".secondary_trusted_keys");
    check();
    EXPECT_EQ(rebuilds_.size(), before + 1);
    EXPECT_EQ(keys.keysOf(".secondary_trusted_keys").size(), 1U);
}

TEST_F(DriftWatchTest, RebuildsOnceForARevokedKeyringWhichIsNotThereAfterwards) {
    keys.revoke(keys.serialOf(".ima"));
    dispatch();
    EXPECT_EQ(rebuilds_.size(), 1U);
    for (int i = 0; i < 3; ++i) {
        now_ += hour;
        check();
    }
    EXPECT_EQ(rebuilds_.size(), 1U);
}

TEST_F(DriftWatchTest, KeepsRebuildsApart) {
    put("signer", "first");
    dispatch();
    keys.clear(".ima");
    dispatch();
    EXPECT_EQ(rebuilds_.size(), 1U);
    const auto end = now_ + seconds(10);
    now_ += seconds(9);
    keys.clear(".ima");
    watch_->check();
    EXPECT_EQ(rebuilds_.size(), 1U);
    now_ = end;
    check();
    EXPECT_EQ(rebuilds_.size(), 2U);
}

TEST_F(DriftWatchTest, ForgetsItsTimersWhenItGoes) {
    put("signer", "first");
    dispatch();
    keys.clear(".ima");
    sm->handleKeyringWatch(".ima"); // a look is due
    watch_ = nullptr;
    dispatch();
    EXPECT_TRUE(rebuilds_.empty());
}

} // namespace

} // namespace Vestrel::Tests
