// SPDX-License-Identifier: Apache-2.0
// Each change of a certificate directory, and what it makes of the kernel's keyring.
#include "tests/kernel/cases/KernelTest.h"

#include <algorithm>
#include <filesystem>

namespace Vestrel::Tests {
namespace {

namespace fs = std::filesystem;

struct Setting {
    std::string keyring;
    HostKind host;
};

class DirectoryChange : public HostTest, public testing::WithParamInterface<Setting> {
protected:
    DirectoryChange() : HostTest(hostOf(GetParam().host)) {}

    void SetUp() override {
        start();
        fs::create_directories("/tmp/elsewhere");
    }

    void TearDown() override {
        fs::remove_all("/tmp/elsewhere");
        HostTest::TearDown();
    }

    std::string path(const std::string& name) const { return file(name, keyring_); }

    // A file whose key is on record.
    key_serial_t monitored(const std::string& name) {
        write(path(name), certificate(name));
        return recorded(name, keyring_);
    }

    testing::AssertionResult holds(const Lines& names) { return holdsOnly(names, keyring_); }

    // The two halves of a move are normally read together; a process may be woken between them.
    void expectCalls(Lines expected) {
        Lines made = calls(keyring_);
        if (GetParam().host == HostKind::agent) {
            std::ranges::sort(made);
            std::ranges::sort(expected);
        }
        EXPECT_EQ(made, expected);
    }

    const std::string keyring_ = GetParam().keyring;
};

TEST_P(DirectoryChange, LoadsANewFile) {
    write(path("new"), certificate("new"));
    EXPECT_NE(recorded("new", keyring_), 0);
    EXPECT_TRUE(holds({"new"}));
    expectCalls({"loadFile new"});
}

TEST_P(DirectoryChange, ReplacesTheKeyOfARewrittenFile) {
    monitored("old");
    write(path("old"), certificate("other"));
    EXPECT_TRUE(holds({"other"}));
    expectCalls({"loadFile old", "modifyFile old", "loadFile old"});
}

TEST_P(DirectoryChange, RenewsTheKeyOfAFileRewrittenWithTheSameDescription) {
    const key_serial_t first = monitored("same");
    write(path("same"), certificate("same", 2));
    EXPECT_TRUE(
        eventually([&] { return Keyring::named(keyring_).keyOf(description("same")) != first; }));
    EXPECT_NE(recorded("same", keyring_), first);
    EXPECT_TRUE(holds({"same"}));
    expectCalls({"loadFile same", "modifyFile same", "loadFile same"});
    EXPECT_EQ(countTraced("unmapFileToDescription"), 0U);
}

TEST_P(DirectoryChange, UnlinksTheKeyOfADeletedFile) {
    monitored("kept");
    monitored("gone");
    fs::remove(path("gone"));
    EXPECT_TRUE(holds({"kept"}));
    expectCalls({"loadFile kept", "loadFile gone", "removeFile gone"});
}

TEST_P(DirectoryChange, LoadsATemporaryFileOnlyUnderItsFinalName) {
    write(path("final.integrity-tmp"), certificate("final"));
    fence(keyring_);
    EXPECT_TRUE(holds({}));
    EXPECT_TRUE(traced("5 handleInotify: Skipping temporary file"));
    fs::rename(path("final.integrity-tmp"), path("final"));
    EXPECT_NE(recorded("final", keyring_), 0);
    EXPECT_TRUE(holds({"final"}));
    EXPECT_TRUE(traced("5 handleInotify: Moved from the outside world"));
    expectCalls({"loadFile final"});
}

TEST_P(DirectoryChange, KeepsTheKeyOfARenamedFile) {
    monitored("content");
    fs::rename(path("content"), path("renamed"));
    fence(keyring_);
    EXPECT_TRUE(holds({"content"}));
    expectCalls({"loadFile content", "loadFile renamed", "removeFile content"});
    recorded("content", keyring_);
    fs::remove(path("renamed"));
    EXPECT_TRUE(holds({}));
}

TEST_P(DirectoryChange, LoadsAFileMovedIn) {
    write("/tmp/elsewhere/arrived", certificate("arrived"));
    fs::rename("/tmp/elsewhere/arrived", path("arrived"));
    EXPECT_NE(recorded("arrived", keyring_), 0);
    EXPECT_TRUE(holds({"arrived"}));
    EXPECT_TRUE(traced("5 handleInotify: Moved from the outside world"));
    expectCalls({"loadFile arrived"});
}

TEST_P(DirectoryChange, UnlinksTheKeyOfAFileMovedOut) {
    monitored("left");
    fs::rename(path("left"), "/tmp/elsewhere/left");
    EXPECT_TRUE(holds({}));
    expectCalls({"loadFile left", "removeFile left"});
}

TEST_P(DirectoryChange, ReplacesTheKeyOfAFileThatIsMovedOver) {
    monitored("target");
    write(path("source.integrity-tmp"), certificate("replacement"));
    fs::rename(path("source.integrity-tmp"), path("target"));
    recorded("replacement", keyring_);
    // A move onto a file only loads: the key of the overwritten content stays.
    EXPECT_TRUE(holds({"replacement", "target"}));
    expectCalls({"loadFile target", "loadFile target"});
    fs::remove(path("target"));
    EXPECT_TRUE(holds({"target"}));
}

TEST_P(DirectoryChange, KeepsTheOtherKeyringsAsTheyAre) {
    const std::string other = keyring_ == ".ima" ? ".secondary_trusted_keys" : ".ima";
    const key_serial_t key = Keyring::named(other).add(certificate("other"));
    monitored("mine");
    fs::remove(path("mine"));
    EXPECT_TRUE(holds({}));
    EXPECT_EQ(Keyring::named(other).keys(), std::vector<key_serial_t>{key});
    EXPECT_EQ(calls(other), Lines{});
}

INSTANTIATE_TEST_SUITE_P(Of, DirectoryChange,
                         testing::Values(Setting{".ima", HostKind::agent},
                                         Setting{".ima", HostKind::library},
                                         Setting{".secondary_trusted_keys", HostKind::agent},
                                         Setting{".secondary_trusted_keys", HostKind::library}),
                         [](const testing::TestParamInfo<Setting>& test) {
                             return test.param.keyring.substr(1) + "_" + nameOf(test.param.host);
                         });

} // namespace
} // namespace Vestrel::Tests
