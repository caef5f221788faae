// SPDX-License-Identifier: Apache-2.0
// Changes of a real directory, through the kernel's inotify and the event loop.
#include "tests/keyring/DirectoryTest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

class DirectoryEventsReal : public DirectoryTest {
protected:
    DirectoryEventsReal() { fs::create_directories(outside_); }

    ~DirectoryEventsReal() override { fs::remove_all(outside_); }

    // Has a file loaded through its own event; forgets how.
    void have(const std::string& name, const std::string& content) {
        write(file(name), content);
        dispatch();
        EXPECT_EQ(keyColl()->fileToDescription(file(name)), content);
        clear();
    }

    std::ptrdiff_t handlerRuns() const {
        return std::ranges::count(traces(), "5 handleInotify: .ima");
    }

    const std::string outside_ = "/etc/outside";
};

TEST_F(DirectoryEventsReal, LoadANewFileThatIsWrittenAndClosed) {
    write(file("a"), "one");
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"loadFile a"});
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"one"});
    EXPECT_EQ(recorded(), keys.keysOf(".ima"));
}

TEST_F(DirectoryEventsReal, ReloadAMonitoredFileThatIsRewrittenAndClosed) {
    have("a", "one");
    write(file("a"), "two");
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"modifyFile a"});
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"two"});
    EXPECT_EQ(recorded(), keys.keysOf(".ima"));
}

TEST_F(DirectoryEventsReal, RemoveAMonitoredFileThatIsDeleted) {
    have("a", "one");
    fs::remove(file("a"));
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"removeFile a"});
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{});
    EXPECT_EQ(recorded(), Serials{});
}

TEST_F(DirectoryEventsReal, LoadTheFinalNameOfATemporaryFile) {
    write(file("a.integrity-tmp"), "one");
    fs::rename(file("a.integrity-tmp"), file("a"));
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"loadFile a"});
    EXPECT_TRUE(traced("5 handleInotify: Moved from the outside world"));
    EXPECT_EQ(std::ranges::count(traces(), "5 handleInotify: Skipping temporary file"), 2);
}

TEST_F(DirectoryEventsReal, LoadTheNewNameOfAMonitoredFileAndRemoveTheOld) {
    have("a", "one");
    fs::rename(file("a"), file("b"));
    dispatch();
    EXPECT_EQ(fileOperations(), (Texts{"loadFile b", "removeFile a"}));
    EXPECT_TRUE(traced("5 handleInotify: Moved from" + file("a")));
    EXPECT_EQ(filesOf("one"), Texts{file("b")});
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"one"});
}

TEST_F(DirectoryEventsReal, LoadAFileThatIsMovedIn) {
    write(outside_ + "/a", "one");
    fs::rename(outside_ + "/a", file("a"));
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"loadFile a"});
    EXPECT_TRUE(traced("5 handleInotify: Moved from the outside world"));
}

TEST_F(DirectoryEventsReal, RemoveAMonitoredFileThatIsMovedOut) {
    have("a", "one");
    fs::rename(file("a"), outside_ + "/a");
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"removeFile a"});
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{});
}

TEST_F(DirectoryEventsReal, RemoveAFileThatIsMovedOutOnlyAfterTheWholeBurst) {
    have("a", "one");
    fs::rename(file("a"), outside_ + "/a");
    write(file("b"), "two");
    write(file("c"), "three");
    dispatch();
    EXPECT_EQ(fileOperations(), (Texts{"loadFile b", "loadFile c", "removeFile a"}));
    EXPECT_EQ(keys.descriptionsOf(".ima"), (Texts{"two", "three"}));
}

TEST_F(DirectoryEventsReal, LoadAFileThatIsMovedOntoAMonitoredName) {
    have("a", "one");
    write(outside_ + "/a", "two");
    fs::rename(outside_ + "/a", file("a"));
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"loadFile a"});
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "two");
}

TEST_F(DirectoryEventsReal, ReadAWholeBurstInOneCall) {
    constexpr int files = 100;
    const std::string stem(80, 'n'); // so that the events take more than one read
    for (int i = 0; i < files; ++i) {
        write(file(stem + std::to_string(i)), "description " + std::to_string(i));
    }
    dispatch();
    EXPECT_EQ(handlerRuns(), 1);
    EXPECT_GT(readings(), 2);
    EXPECT_EQ(mappedFiles(), static_cast<std::size_t>(files));
    EXPECT_EQ(keys.keysOf(".ima").size(), static_cast<std::size_t>(files));
    EXPECT_EQ(recorded(), keys.keysOf(".ima"));
}

TEST_F(DirectoryEventsReal, TellNothingOfAFileThatIsLeftOpen) {
    const int open = ::open(file("a").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::write(open, "one", 3), 3);
    dispatch();
    EXPECT_EQ(traces(), TraceLines{});
    ::close(open);
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"loadFile a"});
}

TEST_F(DirectoryEventsReal, TellNothingOfOtherChanges) {
    have("a", "one");
    ASSERT_EQ(chmod(file("a").c_str(), 0600), 0);
    fs::create_directory(file("d"));
    fs::create_symlink("a", file("l"));
    fs::create_hard_link(file("a"), file("h"));
    const int open = ::open(file("a").c_str(), O_RDONLY | O_CLOEXEC);
    char byte = 0;
    EXPECT_EQ(::read(open, &byte, 1), 1);
    ::close(open);
    dispatch();
    EXPECT_EQ(traces(), TraceLines{});
}

TEST_F(DirectoryEventsReal, SkipAFileThatIsGoneWhenItsCloseIsHandled) {
    write(file("a"), "one");
    fs::remove(file("a"));
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{});
    EXPECT_TRUE(traced("5 handleInotify: Non-regular file: \"/etc/keys/ima/a\""));
    EXPECT_TRUE(traced(path("a") + " was monitored: 0"));
}

TEST_F(DirectoryEventsReal, ReloadAFileAgainForEachClose) {
    write(file("a"), "one");
    write(file("x"), "between"); // the kernel makes one event of equal neighbours
    write(file("a"), "two");
    dispatch();
    EXPECT_EQ(fileOperations(), (Texts{"loadFile a", "loadFile x", "modifyFile a"}));
    EXPECT_EQ(filesOf("two"), Texts{file("a")});
    EXPECT_TRUE(std::ranges::is_permutation(recorded(), keys.keysOf(".ima")));
}

TEST_F(DirectoryEventsReal, EndWithTheDirectory) {
    have("a", "one");
    fs::remove_all(directory());
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"removeFile a"});
    // The kernel ends the watch with the directory.
    EXPECT_TRUE(traced("5 handleInotify: Received notification for watch 1 with mask 32768, "
                       "cookie 0, name (size 0) "));
    EXPECT_TRUE(sm->inotifyDescriptors().has(".ima"));
}

TEST_F(DirectoryEventsReal, WaitWhileNotificationsAreOff) {
    sm->hasNotificationActiveIs(false);
    write(file("a"), "one");
    dispatch();
    EXPECT_EQ(traces(), TraceLines{});
    sm->hasNotificationActiveIs(true);
    dispatch();
    EXPECT_EQ(fileOperations(), Texts{"loadFile a"});
}

TEST_F(DirectoryEventsReal, ReachTheKeyringWhoseDirectoryChanges) {
    write(file("a", ".secondary_trusted_keys"), "one");
    dispatch();
    EXPECT_EQ(traces().front(), "5 handleInotify: .secondary_trusted_keys");
    EXPECT_EQ(keys.descriptionsOf(".secondary_trusted_keys"), Texts{"one"});
    EXPECT_EQ(handlerRuns(), 0);
}

} // namespace

} // namespace Vestrel::Tests
