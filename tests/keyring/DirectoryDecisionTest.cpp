// SPDX-License-Identifier: Apache-2.0
// What each directory event leads to: the decision table row by row, and moves within a call.
#include "tests/keyring/DirectoryTest.h"

#include <sys/stat.h>

namespace Vestrel::Tests {

namespace {

class DirectoryDecision : public DirectoryTest {
protected:
    // All lines of a call that reads one record and then nothing more: what its reading traces,
    // what it leads to, and what is settled behind the drain.
    TraceLines call(const InotifyRecord& record, bool monitored, const TraceLines& decision,
                    const TraceLines& settled = {}) const {
        return joined({{"5 handleInotify: .ima", reading()},
                       received(record, monitored),
                       decision,
                       {reading(), "5 handleInotify: No more to read"},
                       settled});
    }

    void expectNonRegular(const std::string& name) {
        const InotifyRecord record{IN_CLOSE_WRITE, 0, name};
        clear();
        handle({record});
        EXPECT_EQ(traces(), call(record, false,
                                 {path(name) + " was closed after writing",
                                  "5 handleInotify: Non-regular file: \"" + file(name) + "\""}));
        EXPECT_EQ(keys.calls(), Texts{});
        EXPECT_EQ(messages, Texts{});
    }
};

// --- Closed after writing ---

TEST_F(DirectoryDecision, LoadsAnUnknownFileThatWasClosedAfterWriting) {
    write(file("a"), "one");
    const InotifyRecord record{IN_CLOSE_WRITE, 0, "a"};
    handle({record});
    EXPECT_EQ(traces(), call(record, false,
                             joined({{path("a") + " was closed after writing"},
                                     loaded(file("a"), newest(), "one")})));
}

TEST_F(DirectoryDecision, ReloadsAMonitoredFileThatWasClosedAfterWriting) {
    load("a", "one");
    const InotifyRecord record{IN_CLOSE_WRITE, 0, "a"};
    handle({record});
    EXPECT_EQ(
        traces(),
        call(record, true,
             joined({{path("a") + " was closed after writing", "5 modifyFile: .ima, " + file("a")},
                     loaded(file("a"), newest(), "one"),
                     described(newest(), "one")})));
}

TEST_F(DirectoryDecision, SkipsADirectory) {
    std::filesystem::create_directory(file("d"));
    expectNonRegular("d");
}

TEST_F(DirectoryDecision, SkipsAFifo) {
    ASSERT_EQ(mkfifo(file("f").c_str(), 0600), 0);
    expectNonRegular("f");
}

TEST_F(DirectoryDecision, SkipsADanglingLink) {
    std::filesystem::create_symlink("/etc/keys/nowhere", file("l"));
    expectNonRegular("l");
}

TEST_F(DirectoryDecision, SkipsALinkToADirectory) {
    std::filesystem::create_directory_symlink("/etc/keys", file("l"));
    expectNonRegular("l");
}

TEST_F(DirectoryDecision, SkipsAFileThatIsGone) {
    expectNonRegular("gone");
}

TEST_F(DirectoryDecision, SkipsAMonitoredFileThatIsGoneAndKeepsItsMapping) {
    const key_serial_t key = load("a", "one");
    std::filesystem::remove(file("a"));
    handle({{IN_CLOSE_WRITE, 0, "a"}});
    EXPECT_TRUE(traced("5 handleInotify: Non-regular file: \"/etc/keys/ima/a\""));
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
    EXPECT_EQ(keys.keysOf(".ima"), Serials{key});
}

TEST_F(DirectoryDecision, FollowsALinkToARegularFile) {
    write("/etc/keys/elsewhere", "one");
    std::filesystem::create_symlink("/etc/keys/elsewhere", file("l"));
    handle({{IN_CLOSE_WRITE, 0, "l"}});
    EXPECT_EQ(fileOperations(), Texts{"loadFile l"});
    EXPECT_EQ(filesOf("one"), Texts{file("l")});
}

// --- Deleted ---

TEST_F(DirectoryDecision, RemovesAMonitoredFileThatWasDeleted) {
    const key_serial_t key = load("a", "one");
    const InotifyRecord record{IN_DELETE, 0, "a"};
    handle({record});
    EXPECT_EQ(traces(),
              call(record, true,
                   joined({{path("a") + " has been deleted"}, removed(file("a"), "one", key)})));
    EXPECT_EQ(keys.keysOf(".ima"), Serials{});
}

TEST_F(DirectoryDecision, DoesNothingForAnUnknownFileThatWasDeleted) {
    const InotifyRecord record{IN_DELETE, 0, "a"};
    handle({record});
    EXPECT_EQ(traces(), call(record, false, {}));
}

// --- Moved out ---

TEST_F(DirectoryDecision, RemovesAMonitoredFileThatWasMovedOutBehindTheDrain) {
    const key_serial_t key = load("a", "one");
    const InotifyRecord record{IN_MOVED_FROM, 5, "a"};
    handle({record});
    EXPECT_EQ(traces(), call(record, true, {path("a") + " was moved from this directory"},
                             removed(file("a"), "one", key)));
    EXPECT_EQ(keys.keysOf(".ima"), Serials{});
}

TEST_F(DirectoryDecision, DoesNothingForAnUnknownFileThatWasMovedOut) {
    const InotifyRecord record{IN_MOVED_FROM, 5, "a"};
    handle({record});
    EXPECT_EQ(traces(), call(record, false, {path("a") + " was moved from this directory"}));
}

TEST_F(DirectoryDecision, SettlesMovesOutInTheOrderOfTheirCookies) {
    load("a", "one");
    load("b", "two");
    load("c", "three");
    feed({{IN_MOVED_FROM, 0xfffffff0, "a"}, {IN_MOVED_FROM, 2, "b"}});
    feed({{IN_MOVED_FROM, 10, "c"}});
    drain();
    EXPECT_EQ(fileOperations(), (Texts{"removeFile b", "removeFile c", "removeFile a"}));
}

TEST_F(DirectoryDecision, SettlesMovesOutAfterAReadError) {
    load("a", "one");
    feed({{IN_MOVED_FROM, 5, "a"}});
    calls.feedReadError(inotifyFd(), EIO);
    sm->handleInotify(".ima");
    EXPECT_TRUE(traced("1 handleInotify: read: Input/output error"));
    EXPECT_EQ(fileOperations(), Texts{"removeFile a"});
}

TEST_F(DirectoryDecision, SettlesMovesOutAfterAReadOfNothing) {
    load("a", "one");
    feed({{IN_MOVED_FROM, 5, "a"}});
    calls.feedReadEnd(inotifyFd());
    sm->handleInotify(".ima");
    EXPECT_EQ(fileOperations(), Texts{"removeFile a"});
}

TEST_F(DirectoryDecision, KeepsOnlyTheLaterOfTwoMovesOutWithOneCookie) {
    load("a", "one");
    load("b", "two");
    handle({{IN_MOVED_FROM, 5, "a"}, {IN_MOVED_FROM, 5, "b"}});
    EXPECT_EQ(fileOperations(), Texts{"removeFile b"});
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
}

// --- Moved in ---

TEST_F(DirectoryDecision, LoadsAFileThatWasMovedInFromOutside) {
    write(file("a"), "one");
    const InotifyRecord record{IN_MOVED_TO, 5, "a"};
    handle({record});
    EXPECT_EQ(traces(), call(record, false,
                             joined({{path("a") + " was moved to this directory"},
                                     loaded(file("a"), newest(), "one"),
                                     {"5 handleInotify: Moved from the outside world"}})));
}

TEST_F(DirectoryDecision, LoadsAFileThatWasMovedOntoAMonitoredName) {
    load("a", "one");
    write(file("a"), "two");
    handle({{IN_MOVED_TO, 5, "a"}});
    EXPECT_TRUE(traced(path("a") + " was monitored: 1"));
    EXPECT_EQ(fileOperations(), Texts{"loadFile a"});
    EXPECT_EQ(filesOf("two"), Texts{file("a")});
    EXPECT_EQ(filesOf("one"), Texts{file("a")}); // the old set is not left
}

TEST_F(DirectoryDecision, LoadsTheNewNameOfAMoveAndThenRemovesTheOld) {
    const key_serial_t old = load("a", "one");
    std::filesystem::rename(file("a"), file("b"));
    keys.describeWith([](KeyService::Bytes) { return "two"; });
    handle({{IN_MOVED_FROM, 5, "a"}, {IN_MOVED_TO, 5, "b"}});
    const TraceLines end = joined({{path("b") + " was moved to this directory"},
                                   loaded(file("b"), newest(), "two"),
                                   {"5 handleInotify: Moved from/etc/keys/ima/a"},
                                   removed(file("a"), "one", old),
                                   {reading(), "5 handleInotify: No more to read"}});
    const TraceLines all = traces();
    ASSERT_GE(all.size(), end.size());
    EXPECT_EQ(TraceLines(all.end() - static_cast<std::ptrdiff_t>(end.size()), all.end()), end);
    EXPECT_EQ(fileOperations(), (Texts{"loadFile b", "removeFile a"}));
}

TEST_F(DirectoryDecision, KeepsTheKeyOfAFileThatOnlyChangesItsName) {
    load("a", "one");
    std::filesystem::rename(file("a"), file("b"));
    handle({{IN_MOVED_FROM, 5, "a"}, {IN_MOVED_TO, 5, "b"}});
    EXPECT_EQ(filesOf("one"), Texts{file("b")});
    EXPECT_EQ(mappedFiles(), 1U);
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"one"});
}

TEST_F(DirectoryDecision, JoinsTheHalvesOfAMoveAcrossTheReadsOfOneCall) {
    load("a", "one");
    std::filesystem::rename(file("a"), file("b"));
    feed({{IN_MOVED_FROM, 5, "a"}});
    feed({{IN_MOVED_TO, 5, "b"}});
    drain();
    EXPECT_EQ(fileOperations(), (Texts{"loadFile b", "removeFile a"}));
}

TEST_F(DirectoryDecision, ForgetsACookieThatHasFoundItsOtherHalf) {
    load("a", "one");
    write(file("b"), "two");
    write(file("c"), "three");
    handle({{IN_MOVED_FROM, 5, "a"}, {IN_MOVED_TO, 5, "b"}, {IN_MOVED_TO, 5, "c"}});
    EXPECT_EQ(fileOperations(), (Texts{"loadFile b", "removeFile a", "loadFile c"}));
    EXPECT_TRUE(traced("5 handleInotify: Moved from the outside world"));
}

TEST_F(DirectoryDecision, MatchesTheHalvesOfAMoveByCookieOnly) {
    load("a", "one");
    write(file("b"), "two");
    handle({{IN_MOVED_FROM, 5, "a"}, {IN_MOVED_TO, 6, "b"}});
    EXPECT_TRUE(traced("5 handleInotify: Moved from the outside world"));
    EXPECT_EQ(fileOperations(), (Texts{"loadFile b", "removeFile a"}));
    EXPECT_EQ(traces().back().substr(0, 12), "5 unlinkKey:"); // behind the drain
}

TEST_F(DirectoryDecision, TakesTheHalvesOfAMoveInTwoCallsForMovesOutAndIn) {
    load("a", "one");
    std::filesystem::rename(file("a"), file("b"));
    handle({{IN_MOVED_FROM, 5, "a"}});
    EXPECT_EQ(fileOperations(), Texts{"removeFile a"});
    clear();
    handle({{IN_MOVED_TO, 5, "b"}});
    EXPECT_EQ(fileOperations(), Texts{"loadFile b"});
    EXPECT_TRUE(traced("5 handleInotify: Moved from the outside world"));
    EXPECT_EQ(filesOf("one"), Texts{file("b")});
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"one"});
}

TEST_F(DirectoryDecision, RemovesTheOldNameAlsoWhenTheNewOneFailsToLoad) {
    load("a", "one");
    handle({{IN_MOVED_FROM, 5, "a"}, {IN_MOVED_TO, 5, "b"}});
    EXPECT_EQ(fileOperations(), (Texts{"loadFile b", "removeFile a"}));
    EXPECT_EQ(messages.size(), 1U);
    EXPECT_EQ(keys.keysOf(".ima"), Serials{});
}

TEST_F(DirectoryDecision, LoadsTheFinalNameOfATemporaryFileAsFromOutside) {
    write(file("a"), "one");
    handle({{IN_MOVED_FROM, 5, "a.integrity-tmp"}, {IN_MOVED_TO, 5, "a"}});
    EXPECT_EQ(fileOperations(), Texts{"loadFile a"});
    EXPECT_TRUE(traced("5 handleInotify: Moved from the outside world"));
}

TEST_F(DirectoryDecision, TakesAMoveToATemporaryNameForAMoveOut) {
    load("a", "one");
    handle({{IN_MOVED_FROM, 5, "a"}, {IN_MOVED_TO, 5, "a.integrity-tmp"}});
    EXPECT_EQ(fileOperations(), Texts{"removeFile a"});
}

// --- The order of the tests, and what matches none ---

TEST_F(DirectoryDecision, TakesTheFirstRowThatMatches) {
    load("a", "one");
    handle({{IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO, 5, "a"}});
    EXPECT_EQ(fileOperations(), Texts{"modifyFile a"});
    clear();
    handle({{IN_MOVED_FROM | IN_MOVED_TO, 5, "b"}});
    EXPECT_EQ(fileOperations(), Texts{});
    EXPECT_TRUE(traced(path("b") + " was moved from this directory"));
    clear();
    handle({{IN_DELETE | IN_MOVED_FROM, 5, "a"}});
    EXPECT_TRUE(traced(path("a") + " has been deleted"));
    EXPECT_FALSE(traced(path("a") + " was moved from this directory"));
}

TEST_F(DirectoryDecision, PassesOverTheDeletionOfAnUnknownFileToTheNextRows) {
    handle({{IN_DELETE | IN_MOVED_FROM, 5, "a"}});
    EXPECT_TRUE(traced(path("a") + " was moved from this directory"));
}

TEST_F(DirectoryDecision, TakesEveryFileOfAKeyringThatIsNotManagedForUnknown) {
    load("a", "one");
    coll->keyringDelAll();
    for (const std::uint32_t mask : {std::uint32_t{IN_DELETE}, std::uint32_t{IN_MOVED_FROM}}) {
        handle({{mask, 5, "a"}});
    }
    EXPECT_TRUE(traced(path("a") + " was monitored: 0"));
    EXPECT_FALSE(traced(path("a") + " was monitored: 1"));
    EXPECT_EQ(fileOperations(), Texts{});
}

TEST_F(DirectoryDecision, DoesNothingForAnyOtherEvent) {
    load("a", "one");
    constexpr std::uint32_t others =
        IN_ALL_EVENTS & ~(IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO);
    for (const std::uint32_t mask :
         {others, std::uint32_t{IN_IGNORED}, std::uint32_t{IN_Q_OVERFLOW},
          std::uint32_t{IN_UNMOUNT}, std::uint32_t{IN_ISDIR}}) {
        const InotifyRecord record{mask, 5, "a"};
        clear();
        handle({record});
        EXPECT_EQ(traces(), call(record, true, {}));
    }
}

} // namespace

} // namespace Vestrel::Tests
