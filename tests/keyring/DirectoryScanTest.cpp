// SPDX-License-Identifier: Apache-2.0
// Tests what start-up makes of the files in a keyring's certificate directory.
#include "platform/zell/OwnedFd.h"
#include "tests/keyring/CertificateDirectories.h"
#include "tests/support/Unprivileged.h"

#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

class DirectoryScan : public CertificateDirectories {
protected:
    void expectMapped(const std::string& path, const std::string& name,
                      const std::string& keyring = ".ima") const {
        const Orvo::String description(described(name));
        EXPECT_EQ(keyColl(keyring)->fileToDescription(path), description) << path;
        const auto files = keyColl(keyring)->descriptionToFile(description);
        ASSERT_TRUE(files) << path;
        EXPECT_TRUE(files->filePathHas(path)) << path;
    }

    static std::string loading(const std::string& path) {
        return "5 createWatcher: Loading key " + path + " as it was not in the keyring";
    }
};

void makeSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(descriptor);
}

TEST_F(DirectoryScan, LoadsAndMapsACertificateWhoseKeyIsMissing) {
    const std::string path = put("a", "first");
    start(true);
    EXPECT_TRUE(traced(loading(path)));
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
    expectMapped(path, "first");
    EXPECT_TRUE(keyColl()->key().empty()) << "recorded only when the keyring tells";
}

TEST_F(DirectoryScan, MapsACertificateWhoseKeyIsThereAndDoesNotLoadItAgain) {
    const key_serial_t key = keys.addKey(".ima", described("first"));
    const std::string path = put("a", "first");
    start(true);
    expectMapped(path, "first");
    EXPECT_FALSE(traced(loading(path)));
    EXPECT_TRUE(keyCalls("add_key").empty());
    EXPECT_EQ(keys.keysOf(".ima"), std::vector<key_serial_t>{key});
}

TEST_F(DirectoryScan, MapsBothOfTwoFilesWithOneDescriptionAndLoadsNeitherWhenTheKeyIsThere) {
    keys.addKey(".ima", described("first"));
    const std::string a = put("a", "first");
    const std::string b = put("b", "first");
    start(true);
    expectMapped(a, "first");
    expectMapped(b, "first");
    EXPECT_EQ(keyColl()->descriptionToFile().size(), 1U);
    EXPECT_TRUE(keyCalls("add_key").empty());
}

TEST_F(DirectoryScan, LoadsEachOfTwoFilesWithOneDescriptionWhenTheKeyIsMissing) {
    const std::string a = put("a", "first");
    const std::string b = put("b", "first");
    start(true);
    EXPECT_TRUE(traced(loading(a)));
    EXPECT_TRUE(traced(loading(b)));
    EXPECT_EQ(keyCalls("add_key").size(), 2U);
    expectMapped(a, "first");
    expectMapped(b, "first");
}

TEST_F(DirectoryScan, ServesEachKeyringFromItsOwnDirectory) {
    put("a", "first");
    put("b", "second", ".secondary_trusted_keys");
    start(true);
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
    EXPECT_EQ(keys.descriptionsOf(".secondary_trusted_keys"),
              std::vector<std::string>{described("second")});
    EXPECT_TRUE(keyColl(".builtin_trusted_keys")->fileToDescription().empty());
}

TEST_F(DirectoryScan, TakesAKeyForPresentOnlyInItsOwnKeyring) {
    keys.addKey(".secondary_trusted_keys", described("first"));
    put("a", "first");
    start(true);
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
}

TEST_F(DirectoryScan, GoesOnAfterACertificateThatTheKernelRefuses) {
    const std::string refused = put("refused", "refused");
    const std::string taken = put("taken", "taken");
    keys.judgeWith([](KeyService::Bytes der) {
        return certificateDescription(der) == described("refused") ? EKEYREJECTED : 0;
    });
    start(true);
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("taken")});
    EXPECT_EQ(messages, std::vector<std::string>{
                            "VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate " +
                            refused + " in keyring (.ima). " + std::strerror(EKEYREJECTED) + "."});
    expectMapped(refused, "refused");
    expectMapped(taken, "taken");
    EXPECT_EQ(traces(1), TraceLines{});
}

TEST_F(DirectoryScan, OffersFilesToAKeyringThatRefusesUserSpace) {
    const std::string path = put("a", "first", ".machine");
    start(true);
    EXPECT_EQ(messages, std::vector<std::string>{
                            "VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate " + path +
                            " in keyring (.machine). " + std::strerror(EACCES) + "."});
}

TEST_F(DirectoryScan, SkipsWhatIsNotARegularFile) {
    fs::create_directory(file("directory"));
    put("directory/inside", "first");
    makeSocket(file("socket"));
    ASSERT_EQ(mkfifo(file("fifo").c_str(), 0600), 0);
    fs::create_symlink("nowhere", file("dangling"));
    fs::create_symlink("loop", file("loop"));
    fs::create_symlink("directory", file("link-to-directory"));
    start(true);
    EXPECT_TRUE(keyColl()->fileToDescription().empty());
    EXPECT_TRUE(keyCalls("add_key").empty());
    EXPECT_EQ(traces(1), TraceLines{});
    EXPECT_TRUE(messages.empty());
}

TEST_F(DirectoryScan, DoesNotOpenWhatIsNotARegularFile) {
    ASSERT_EQ(mkfifo(file("fifo").c_str(), 0600), 0);
    const Zell::OwnedFd opened(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_NE(inotify_add_watch(opened.get(), file("fifo").c_str(), IN_OPEN), -1);
    start();
    std::array<char, 256> events{};
    EXPECT_EQ(read(opened.get(), events.data(), events.size()), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(DirectoryScan, SkipsSilentlyWhatIsNotACertificate) {
    write(file("notes.txt"), "not a certificate");
    write(file("empty"), "");
    std::string half(certificate("first").begin(), certificate("first").end());
    half.resize(half.size() / 2);
    write(file("half"), half);
    const std::string path = put("z", "first");
    start(true);
    EXPECT_EQ(keyColl()->fileToDescription().size(), 1U);
    expectMapped(path, "first");
    EXPECT_EQ(keyCalls("add_key").size(), 1U);
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(traces(1), TraceLines{});
}

TEST_F(DirectoryScan, ProcessesASymbolicLinkToACertificateUnderTheLinksName) {
    fs::create_directory("/etc/elsewhere");
    const std::string target = "/etc/elsewhere/real";
    fs::rename(put("real", "first"), target);
    fs::create_symlink(target, file("link"));
    start(true);
    expectMapped(file("link"), "first");
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
    fs::remove_all("/etc/elsewhere");
}

TEST_F(DirectoryScan, ReadsADirectoryThatASymbolicLinkLeadsTo) {
    put("a", "first");
    fs::rename(directory(), "/etc/elsewhere");
    fs::create_directory_symlink("/etc/elsewhere", directory());
    start(true);
    expectMapped(file("a"), "first");
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
    fs::remove_all("/etc/elsewhere");
}

TEST_F(DirectoryScan, ProcessesPem) {
    write(file("a.pem"), toPem(certificate("first")));
    start(true);
    expectMapped(file("a.pem"), "first");
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
}

// Only the events of a directory skip the name under which writers create a file.
TEST_F(DirectoryScan, ProcessesAFileUnderAnyName) {
    const std::string hidden = put(".hidden", "first");
    const std::string temporary = put("b.integrity-tmp", "second");
    start(true);
    expectMapped(hidden, "first");
    expectMapped(temporary, "second");
}

TEST_F(DirectoryScan, EndsSilentlyWhereTheDirectoryIsMissing) {
    fs::remove(directory());
    const key_serial_t key = keys.addKey(".ima", "d");
    start(true);
    EXPECT_EQ(traces(1), TraceLines{std::string("1 createInotifyWatch: inotify_add_watch: ") +
                                    std::strerror(ENOENT)})
        << "which is the watch's own trace";
    EXPECT_NE(keyColl()->key(key), nullptr) << "the keys were read";
    EXPECT_EQ(keys.watchIdsOf(".ima"), std::vector<int>{1}) << "the keyring stays watched";
    EXPECT_EQ(sm->watcherInfos().size(), 4U);
}

TEST_F(DirectoryScan, EndsSilentlyWhereTheDirectoryIsAFile) {
    fs::remove(directory());
    write(directory(), "a file");
    start(true);
    EXPECT_EQ(traces(1), TraceLines{});
    EXPECT_TRUE(keyColl()->fileToDescription().empty());
    EXPECT_TRUE(sm->watcherInfos(".ima"));
}

TEST_F(DirectoryScan, EndsSilentlyWhereTheDirectoryIsALinkToItself) {
    fs::remove(directory());
    fs::create_symlink("ima", directory());
    start(true);
    EXPECT_EQ(traces(1), TraceLines{std::string("1 createInotifyWatch: inotify_add_watch: ") +
                                    std::strerror(ELOOP)})
        << "which is the watch's own trace";
    EXPECT_TRUE(messages.empty());
    EXPECT_TRUE(keyColl()->fileToDescription().empty());
    EXPECT_EQ(sm->watcherInfos().size(), 4U);
}

TEST_F(DirectoryScan, EndsSilentlyWhereTheWayToTheDirectoryIsBarred) {
    put("a", "first");
    fs::permissions(fs::path(directory()).parent_path(), fs::perms::owner_all);
    const Unprivileged user;
    start(true);
    EXPECT_EQ(traces(1), TraceLines(4, std::string("1 createInotifyWatch: inotify_add_watch: ") +
                                           std::strerror(EACCES)))
        << "which are the watches' own traces";
    EXPECT_TRUE(keyColl()->fileToDescription().empty());
    EXPECT_EQ(sm->watcherInfos().size(), 4U);
}

TEST_F(DirectoryScan, LosesNoFileThatIsWrittenWhileItStartsUp) {
    bool isWritten = false;
    onTrace = [&](const std::string& line) {
        if (!isWritten && line == "5 createWatcher: Found 0 existing keys") {
            isWritten = true;
            put("late", "late");
        }
    };
    start(true);
    onTrace = nullptr;
    dispatch();
    ASSERT_TRUE(isWritten);
    expectMapped(file("late"), "late");
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("late")});
}

} // namespace

} // namespace Vestrel::Tests
