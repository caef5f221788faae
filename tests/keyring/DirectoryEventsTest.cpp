// SPDX-License-Identifier: Apache-2.0
// The drain of a directory's inotify descriptor, and the decision on each event.
#include "platform/brisklog/Brisklog.h"
#include "tests/keyring/DirectoryTest.h"

#include <sys/stat.h>

namespace Vestrel::Tests {

namespace {

class DirectoryEvents : public DirectoryTest {};

TEST_F(DirectoryEvents, AreReadUntilThereAreNoMore) {
    sm->handleInotify(".ima");
    EXPECT_EQ(traces(),
              (TraceLines{"5 handleInotify: .ima", reading(), "5 handleInotify: No more to read"}));
    EXPECT_EQ(calls.calls(), Texts{"read " + text(inotifyFd()) + " 4096"});
    EXPECT_EQ(keys.calls(), Texts{});
}

TEST_F(DirectoryEvents, AreNotReadWithoutAnEntry) {
    const auto kept = sm->inotifyDescriptorsDel(".ima");
    clear();
    sm->handleInotify(".ima");
    sm->handleInotify(".unknown");
    EXPECT_EQ(traces(), TraceLines{});
    EXPECT_EQ(calls.calls(), Texts{});
}

TEST_F(DirectoryEvents, AreNotReadWithoutADescriptorNumber) {
    sm->inotifyDescriptors().value(".ima")->descriptorIs(-1);
    sm->handleInotify(".ima");
    EXPECT_EQ(traces(), TraceLines{});
    EXPECT_EQ(calls.calls(), Texts{});
}

TEST_F(DirectoryEvents, EndWithAReadError) {
    calls.feedReadError(inotifyFd(), EIO);
    sm->handleInotify(".ima");
    EXPECT_EQ(traces(), (TraceLines{"5 handleInotify: .ima", reading(),
                                    "1 handleInotify: read: Input/output error"}));
    EXPECT_EQ(calls.calls().size(), 1U);
    EXPECT_TRUE(sm->inotifyDescriptors().has(".ima"));
}

TEST_F(DirectoryEvents, EndWithTheErrorOfTheReadWhateverATraceLeavesInErrno) {
    onTrace = [](const std::string&) { errno = EIO; };
    drain();
    onTrace = nullptr;
    EXPECT_EQ(traces().back(), "5 handleInotify: No more to read");
}

TEST_F(DirectoryEvents, EndWithAReadOfNothing) {
    calls.feedReadEnd(inotifyFd());
    sm->handleInotify(".ima");
    EXPECT_EQ(traces(), (TraceLines{"5 handleInotify: .ima", reading()}));
    EXPECT_EQ(calls.calls().size(), 1U);
}

TEST_F(DirectoryEvents, OfTooFewBytesAreReadOver) {
    const std::string whole = inotifyBytes({IN_CLOSE_WRITE, 0, "a"});
    for (std::size_t size = 1; size < 16; ++size) {
        clear();
        calls.feedRead(inotifyFd(), whole.substr(0, size));
        sm->handleInotify(".ima");
        EXPECT_EQ(traces(),
                  (TraceLines{"5 handleInotify: .ima", reading(),
                              "5 handleInotify: Read " + std::to_string(size) + " bytes",
                              "5 handleInotify: Read too few bytes for a valid notification",
                              reading(), "5 handleInotify: No more to read"}));
    }
    EXPECT_EQ(keys.calls(), Texts{});
}

TEST_F(DirectoryEvents, AreDecodedFromASingleHeaderOn) {
    handle({{IN_Q_OVERFLOW, 0, "", -1}});
    EXPECT_EQ(traces(),
              (TraceLines{"5 handleInotify: .ima", reading(), "5 handleInotify: Read 16 bytes",
                          "5 handleInotify: Received notification for watch -1 with mask 16384, "
                          "cookie 0, name (size 0) ",
                          "5 handleInotify: \"/etc/keys/ima/\" was monitored: 0", reading(),
                          "5 handleInotify: No more to read"}));
    EXPECT_EQ(keys.calls(), Texts{});
}

TEST_F(DirectoryEvents, TraceTheRecordInDecimalAndThePathInQuotes) {
    handle({{IN_DELETE | IN_ISDIR, 4000000000, "a b", 7}});
    EXPECT_EQ(lines(), (TraceLines{"5 handleInotify: Read 32 bytes",
                                   "5 handleInotify: Received notification for watch 7 with mask "
                                   "1073742336, cookie 4000000000, name (size 16) a b",
                                   "5 handleInotify: \"/etc/keys/ima/a b\" was monitored: 0"}));
}

TEST_F(DirectoryEvents, EscapeQuotesInTracedPaths) {
    handle({{IN_DELETE, 0, "a\"b\\c"}});
    EXPECT_TRUE(traced("5 handleInotify: \"/etc/keys/ima/a\\\"b\\\\c\" was monitored: 0"));
}

TEST_F(DirectoryEvents, OfOneReadAreHandledInTheirOrder) {
    write(file("a"), "one");
    write(file("b"), "two");
    handle({{IN_CLOSE_WRITE, 0, "b"}, {IN_CLOSE_WRITE, 0, "a"}});
    EXPECT_EQ(fileOperations(), (Texts{"loadFile b", "loadFile a"}));
}

TEST_F(DirectoryEvents, OfSeveralReadsAreHandledInOneCall) {
    write(file("a"), "one");
    write(file("b"), "two");
    feed({{IN_CLOSE_WRITE, 0, "a"}});
    feed({{IN_CLOSE_WRITE, 0, "b"}});
    drain();
    EXPECT_EQ(fileOperations(), (Texts{"loadFile a", "loadFile b"}));
    EXPECT_EQ(readings(), 3);
}

TEST_F(DirectoryEvents, WithAHostileLengthEndTheRead) {
    write(file("b"), "two");
    calls.feedRead(inotifyFd(), inotifyHeader({IN_DELETE}, 0xfffffff0) + "name");
    feed({{IN_CLOSE_WRITE, 0, "b"}});
    drain();
    EXPECT_TRUE(traced("5 handleInotify: Received notification for watch 1 with mask 512, cookie "
                       "0, name (size 4294967280) name"));
    EXPECT_EQ(fileOperations(), Texts{"loadFile b"});
}

TEST_F(DirectoryEvents, KeepABufferThatTheWholeKernelNameFitsInto) {
    const std::string longest(255, 'n');
    handle({{IN_DELETE, 0, longest}});
    EXPECT_TRUE(traced("5 handleInotify: \"" + file(longest) + "\" was monitored: 0"));
}

TEST_F(DirectoryEvents, OfTemporaryFilesHaveNoEffect) {
    load("a.integrity-tmp", "one");
    for (const std::uint32_t mask : {0x8U, 0x200U, 0x40U, 0x80U}) {
        clear();
        handle({{mask, 3, "a.integrity-tmp"}});
        EXPECT_EQ(lines(), (TraceLines{"5 handleInotify: Read 32 bytes",
                                       "5 handleInotify: Received notification for watch 1 with "
                                       "mask " +
                                           std::to_string(mask) +
                                           ", cookie 3, name (size 16) a.integrity-tmp",
                                       "5 handleInotify: Skipping temporary file"}));
        EXPECT_EQ(keys.calls(), Texts{});
    }
    EXPECT_EQ(filesOf("one"), Texts{file("a.integrity-tmp")});
}

TEST_F(DirectoryEvents, OfTheBareSuffixAreThoseOfATemporaryFile) {
    handle({{IN_CLOSE_WRITE, 0, ".integrity-tmp"}});
    EXPECT_TRUE(traced("5 handleInotify: Skipping temporary file"));
}

TEST_F(DirectoryEvents, OfNamesThatOnlyResembleTemporaryOnesCount) {
    for (const char* const name : {"a.integrity-tmp2", "a.integrity-TMP", "integrity-tmp"}) {
        write(file(name), name);
        clear();
        handle({{IN_CLOSE_WRITE, 0, name}});
        EXPECT_EQ(fileOperations(), Texts{std::string("loadFile ") + name});
    }
}

TEST_F(DirectoryEvents, TellAMonitoredFileByItsMapping) {
    load("a", "one");
    handle({{IN_ATTRIB, 0, "a"}, {IN_ATTRIB, 0, "b"}});
    EXPECT_TRUE(traced("5 handleInotify: \"/etc/keys/ima/a\" was monitored: 1"));
    EXPECT_TRUE(traced("5 handleInotify: \"/etc/keys/ima/b\" was monitored: 0"));
    EXPECT_EQ(fileOperations(), Texts{});
}

TEST_F(DirectoryEvents, JudgeMonitoringAnewForEachRecord) {
    write(file("a"), "one");
    handle({{IN_CLOSE_WRITE, 0, "a"}, {IN_CLOSE_WRITE, 0, "a"}, {IN_DELETE, 0, "a"}});
    EXPECT_EQ(fileOperations(), (Texts{"loadFile a", "modifyFile a", "removeFile a"}));
}

TEST_F(DirectoryEvents, CountEveryPathAsNotMonitoredForAnUnknownKeyring) {
    load("a", "one");
    coll->keyringDelAll();
    handle({{IN_DELETE, 0, "a"}, {IN_MOVED_FROM, 1, "a"}});
    EXPECT_TRUE(traced("5 handleInotify: \"/etc/keys/ima/a\" was monitored: 0"));
    EXPECT_EQ(fileOperations(), Texts{});
}

TEST_F(DirectoryEvents, BelongToTheDirectoryOfTheirKeyring) {
    const std::string ring = ".secondary_trusted_keys";
    write(file("a", ring), "one");
    calls.feedRead(sm->watcherInfos(ring).inotifyFd, inotifyBytes({IN_CLOSE_WRITE, 0, "a"}));
    calls.feedReadError(sm->watcherInfos(ring).inotifyFd, EAGAIN);
    sm->handleInotify(ring);
    EXPECT_EQ(keyColl(ring)->fileToDescription("/etc/keys/secondary_trusted_keys/a"), "one");
    EXPECT_EQ(mappedFiles(), 0U);
}

TEST_F(DirectoryEvents, GoOnAfterAFileThatFailsToLoad) {
    write(file("b"), "two");
    handle({{IN_MOVED_TO, 1, "gone"}, {IN_CLOSE_WRITE, 0, "b"}});
    EXPECT_EQ(messages, Texts{failure(file("gone"), "No such file or directory")});
    EXPECT_EQ(fileOperations(), (Texts{"loadFile gone", "loadFile b"}));
    EXPECT_EQ(filesOf("two"), Texts{file("b")});
}

TEST_F(DirectoryEvents, TraceInTheNameOfTheirHandlerInTheRingToo) {
    Brisklog::eventsDelAll();
    sm->handleInotify(".ima");
    const Brisklog::Event last = Brisklog::events().back();
    EXPECT_NE(last.format.find("Vestrel::IntegrityKeyringSm::handleInotify("), std::string::npos);
    EXPECT_EQ(last.values, Texts{"No more to read"});
}

} // namespace

} // namespace Vestrel::Tests
