// SPDX-License-Identifier: Apache-2.0
// Tests what is counted of each keyring, and that counting changes nothing else.
#include "keyring/KeyringCounters.h"
#include "keyring/WatchNotification.h"
#include "tests/keyring/CertificateDirectories.h"
#include "tests/keyring/InotifyBytes.h"

#include <sys/inotify.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

namespace {

class Counters : public CertificateDirectories {
protected:
    Counters() {
        KeyringCounters::of(".ima") = {}; // they live as long as the process
        KeyringCounters::doubtObserverIs([this] { ++doubts_; });
        start();
    }

    ~Counters() override { KeyringCounters::doubtObserverIs(nullptr); }

    static KeyringCounters& ima() { return KeyringCounters::of(".ima"); }

    int doubts_ = 0;
};

TEST_F(Counters, CountLoadsRefusalsAndUnlinks) {
    put("good", "first");
    put("other", "second");
    dispatch();
    keys.judgeWith([](auto) { return ENOKEY; });
    put("bad", "third");
    dispatch();
    EXPECT_EQ(ima().loads, 2);
    EXPECT_EQ(ima().refusals, 1);
    EXPECT_EQ(ima().unlinks, 0);
    std::filesystem::remove(file("good"));
    dispatch();
    EXPECT_EQ(ima().unlinks, 1);
    EXPECT_EQ(KeyringCounters::of(".machine").loads, 0) << "each keyring has its own";
    EXPECT_EQ(doubts_, 0);
}

TEST_F(Counters, NameTheLastFailureWithItsTimeAndReason) {
    EXPECT_EQ(ima().lastFailureTime, "");
    keys.judgeWith([](auto) { return ENOKEY; });
    put("bad", "third");
    dispatch();
    EXPECT_EQ(ima().lastFailure, file("bad") + ": Required key not available");
    EXPECT_TRUE(std::regex_match(
        ima().lastFailureTime,
        std::regex("20[0-9]{2}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z")))
        << ima().lastFailureTime;
}

TEST_F(Counters, RememberARefusedFileUntilItIsTaken) {
    keys.judgeWith([](auto) { return EBADMSG; });
    put("file", "text");
    dispatch();
    EXPECT_EQ(ima().refused, (KeyringCounters::Refusals{{file("file"), {"Bad message", 1}}}));
    keys.judgeWith(nullptr);
    put("file", "text");
    dispatch();
    EXPECT_TRUE(ima().refused.empty());
}

TEST_F(Counters, ForgetARefusedFileThatIsRemovedOrMovedAway) {
    keys.judgeWith([](auto) { return EBADMSG; });
    for (const char* const name : {"kept", "removed", "away", "renamed"}) {
        put(name, name);
    }
    dispatch();
    EXPECT_EQ(ima().refused.size(), 4U);
    std::filesystem::remove(file("removed"));
    std::filesystem::rename(file("away"), "/etc/away");
    std::filesystem::rename(file("renamed"), file("other"));
    dispatch();
    EXPECT_EQ(ima().refused, (KeyringCounters::Refusals{{file("kept"), {"Bad message", 1}},
                                                        {file("other"), {"Bad message", 5}}}));
    EXPECT_EQ(ima().refusals, 5);
    std::filesystem::remove("/etc/away");
}

TEST_F(Counters, RememberARefusedFileUntilItsRemovalIsTold) {
    keys.judgeWith([](auto) { return EBADMSG; });
    put("file", "text");
    dispatch();
    write(file("file"), "again");
    std::filesystem::remove(file("file"));
    calls.feedRead(
        sm->watcherInfos(".ima").inotifyFd,
        inotifyBytes({.mask = IN_CLOSE_WRITE, .name = "file"})); // of which the removal comes later
    calls.feedReadError(sm->watcherInfos(".ima").inotifyFd, EAGAIN);
    sm->handleInotify(".ima");
    EXPECT_EQ(ima().refused, (KeyringCounters::Refusals{{file("file"), {"Bad message", 1}}}));
    dispatch();
    EXPECT_TRUE(ima().refused.empty());
}

TEST_F(Counters, NumberRefusalsFromOneOn) {
    EXPECT_EQ(KeyringCounters::Refusal().number, 0);
    ima().refusalIs("/first", "any");
    ima().refusalIs("/second", "any");
    EXPECT_EQ(ima().refused["/first"].number, 1);
    EXPECT_EQ(ima().refused["/second"].number, 2);
}

TEST_F(Counters, ForgetRefusedFilesWhenEverythingIsOfferedAgain) {
    ima().refusalIs("/gone", "any");
    stop();
    start();
    EXPECT_TRUE(ima().refused.empty());
    EXPECT_EQ(ima().refusals, 1);
}

TEST_F(Counters, RememberNoMoreRefusedFilesThanTheirLimit) {
    for (std::size_t i = 0; i <= KeyringCounters::maxRefusedFiles; ++i) {
        ima().refusalIs(std::to_string(i), "any");
    }
    EXPECT_EQ(ima().refused.size(), 4096U);
    EXPECT_EQ(ima().refusals, static_cast<std::int64_t>(KeyringCounters::maxRefusedFiles) + 1);
    ima().refusalIs("0", "another");
    EXPECT_EQ(ima().refused["0"], (KeyringCounters::Refusal{"another", ima().refusals}));
}

TEST_F(Counters, CountNotificationsOfTheKeyring) {
    keys.addKey(".ima", "first");
    keys.addKey(".ima", "second");
    dispatch();
    EXPECT_EQ(ima().notifications, 2);
    EXPECT_EQ(doubts_, 0);
}

TEST_F(Counters, CountAnOverflowOfTheDirectoryAsDoubt) {
    calls.feedRead(sm->watcherInfos(".ima").inotifyFd,
                   inotifyBytes({.mask = IN_Q_OVERFLOW, .watch = -1}));
    sm->handleInotify(".ima");
    EXPECT_EQ(ima().overflows, 1);
    EXPECT_EQ(doubts_, 1);
}

TEST_F(Counters, CountALossOfNotificationsInEitherForm) {
    const int queue = sm->watcherInfos(".ima").readFd;
    calls.feedRead(queue, std::string_view("\0\0\0\1\10\0\0\0", 8)); // as the kernel has it
    sm->handleKeyringWatch(".ima");
    EXPECT_EQ(ima().notificationsLost, 1);
    calls.feedRead(queue, std::string_view("\0\0\0\1\20\0\0\0\0\0\0\0\0\0\0\0", 16));
    sm->handleKeyringWatch(".ima");
    EXPECT_EQ(ima().notificationsLost, 2);
    EXPECT_EQ(doubts_, 2);
}

TEST_F(Counters, TakeAnotherShortRecordForNoLoss) {
    const int queue = sm->watcherInfos(".ima").readFd;
    calls.feedRead(queue, std::string_view("\0\0\0\1", 4));
    calls.feedRead(queue, std::string_view("\0\0\0\0\10\0\0\0", 8));
    sm->handleKeyringWatch(".ima");
    EXPECT_EQ(ima().notificationsLost, 0);
    EXPECT_EQ(doubts_, 0);
}

TEST_F(Counters, CountClearedRevokedAndRemovedKeyringsAsDoubt) {
    keys.clear(".ima");
    dispatch();
    EXPECT_EQ(ima().upsets, 1);
    keys.revoke(keys.serialOf(".ima"));
    dispatch();
    EXPECT_EQ(ima().upsets, 2);
    keys.removeKeyring(".ima");
    dispatch();
    EXPECT_EQ(ima().upsets, 3);
    EXPECT_EQ(doubts_, 3);
}

TEST_F(Counters, TellTheObserverOfADoubtWhenItHasBeenTraced) {
    TraceLines traced;
    KeyringCounters::doubtObserverIs([&] { traced = traces(1); });
    const int queue = sm->watcherInfos(".ima").readFd;
    calls.feedRead(queue, std::string_view("\0\0\0\1\20\0\0\0\0\0\0\0\0\0\0\0", 16));
    sm->handleKeyringWatch(".ima");
    EXPECT_EQ(traced, TraceLines{"1 handleKeyringWatch: Notification was lost"});
    clear();
    keys.removeKeyring(".ima");
    dispatch();
    EXPECT_EQ(traced, TraceLines{"1 handleKeyringWatch: Watched keyring .ima has been removed"});
}

TEST_F(Counters, AreVisitedUnderTheNamesOfTheirKeyrings) {
    ima().loads = 7;
    KeyringCounters::of(".machine"); // made at first use
    std::map<std::string, std::int64_t> loads;
    KeyringCounters::forEach([&](const std::string& keyring, const KeyringCounters& counters) {
        loads[keyring] = counters.loads;
        EXPECT_EQ(&counters, &KeyringCounters::of(keyring));
    });
    EXPECT_EQ(loads.at(".ima"), 7);
    EXPECT_TRUE(loads.contains(".machine"));
}

TEST_F(Counters, GoOnWhenTheStateMachineIsMadeAgain) {
    put("good", "first");
    dispatch();
    stop();
    start();
    put("other", "second");
    dispatch();
    EXPECT_EQ(ima().loads, 2);
}

TEST_F(Counters, NameWhyAWatchCouldNotBeOpened) {
    stop();
    calls.failNext("inotify_add_watch", ENOSPC);
    start();
    EXPECT_EQ(ima().lastFailure, "inotify_add_watch: No space left on device");
}

TEST_F(Counters, NameTheCallThatFailedAndWhy) {
    const auto lastFailureWithout = [this](const char* call, int error) {
        stop();
        calls.failNext(call, error);
        start();
        return ima().lastFailure;
    };
    EXPECT_EQ(lastFailureWithout("inotify_init1", EMFILE), "inotify_init1: Too many open files");
    EXPECT_EQ(lastFailureWithout("pipe2", ENFILE), "pipe2: Too many open files in system");
    EXPECT_EQ(lastFailureWithout("ioctl", ENOMEM),
              "ioctl IOC_WATCH_QUEUE_SET_SIZE: Cannot allocate memory");
    stop();
    keys.failNext("keyctl_watch_key", EDQUOT);
    start();
    EXPECT_EQ(ima().lastFailure, "keyctl_watch_key: Disk quota exceeded");
    stop();
    keys.failNext("find_key_by_type_and_desc", ENOKEY);
    start();
    EXPECT_EQ(ima().lastFailure, "find_key_by_type_and_desc: Required key not available");
}

TEST_F(Counters, NameWhyAKeyCouldNotBeUnlinked) {
    put("file", "text");
    dispatch();
    keys.failNext("keyctl_unlink", EACCES);
    std::filesystem::remove(file("file"));
    dispatch();
    EXPECT_EQ(ima().lastFailure, "keyctl_unlink: Permission denied");
    EXPECT_EQ(ima().unlinks, 0);
}

TEST_F(Counters, LeaveTheErrorNumberToWhoeverReportsTheFailure) {
    errno = 0;
    ima().failureIs("call", ENOSPC);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(Counters, AreReadThroughTheirTypeTable) {
    const Zell::TypeData* const type = Zell::registeredType("Vestrel::KeyringCounters");
    ASSERT_NE(type, nullptr);
    KeyringCounters counters;
    counters.loads = 1;
    counters.refusals = 2;
    counters.unlinks = 3;
    counters.notifications = 4;
    counters.notificationsLost = 5;
    counters.overflows = 6;
    counters.upsets = 7;
    counters.lastFailureTime = "time";
    counters.lastFailure = "failure";
    std::vector<std::pair<std::string, Orvo::Value>> read;
    for (std::size_t i = 0; i < type->attributes().size(); ++i) {
        read.emplace_back(type->attributes()[i].name, type->value(&counters, i));
    }
    const auto number = [](std::int64_t value) { return Orvo::Value(value); };
    EXPECT_EQ(read, (std::vector<std::pair<std::string, Orvo::Value>>{
                        {"loads", number(1)},
                        {"refusals", number(2)},
                        {"unlinks", number(3)},
                        {"notifications", number(4)},
                        {"notificationsLost", number(5)},
                        {"overflows", number(6)},
                        {"upsets", number(7)},
                        {"lastFailureTime", Orvo::Value(Orvo::String("time"))},
                        {"lastFailure", Orvo::Value(Orvo::String("failure"))}}));
    ASSERT_EQ(type->collections().size(), 1U);
    EXPECT_STREQ(type->collections()[0].name, "refused");
}

TEST_F(Counters, ShowRefusedFilesThroughTheirTypeTable) {
    ima().refusalIs("/a", "an earlier reason");
    ima().refusalIs("/a", "reason");
    const Zell::TypeData* const type = Zell::registeredType("Vestrel::KeyringCounters");
    ASSERT_NE(type, nullptr);
    int refused = 0;
    type->collections().at(0).forEach(&ima(), [&](const Orvo::String& name, const auto& value) {
        ++refused;
        EXPECT_EQ(name, "/a");
        const auto& refusal = std::get<Orvo::Record>(value);
        EXPECT_EQ(refusal.type, Zell::registeredType("Vestrel::KeyringCounters::Refusal"));
        ASSERT_EQ(refusal.type->attributes().size(), 2U);
        EXPECT_STREQ(refusal.type->attributes()[0].name, "reason");
        EXPECT_EQ(refusal.type->value(refusal.object.get(), 0),
                  Orvo::Value(Orvo::String("reason")));
        EXPECT_STREQ(refusal.type->attributes()[1].name, "number");
        EXPECT_EQ(refusal.type->value(refusal.object.get(), 1), Orvo::Value(std::int64_t{2}));
    });
    EXPECT_EQ(refused, 1);
}

} // namespace

} // namespace Vestrel::Tests
