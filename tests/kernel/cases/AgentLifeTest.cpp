// SPDX-License-Identifier: Apache-2.0
// The life of the agent: readiness, reload, end, and what outlives a violent one.
#include "tests/kernel/cases/KernelTest.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace Vestrel::Tests {
namespace {

namespace fs = std::filesystem;

class AgentLife : public AgentTest {
protected:
    void reload() {
        agent().signal(SIGHUP);
        agent().waitReady(++timesReady_);
    }

    // What the agent has open, without the numbers.
    Lines descriptors() const {
        Lines descriptors;
        for (const auto& entry :
             fs::directory_iterator("/proc/" + std::to_string(agent().pid()) + "/fd")) {
            const std::string target = fs::read_symlink(entry.path()).string();
            descriptors.push_back(target.substr(0, target.find('[')));
        }
        std::ranges::sort(descriptors);
        return descriptors;
    }

    std::size_t timesReady_ = 1;
};

TEST_F(AgentLife, BeginsWithMissingDirectories) {
    const mode_t usual = umask(077);
    start();
    umask(usual);
    const std::vector<std::string> directories{
        "/etc/keys", "/etc/keys/ima", "/etc/keys/secondary_trusted_keys",
        "/etc/keys/builtin_trusted_keys", "/etc/keys/machine"};
    for (const std::string& path : directories) {
        struct stat status {};

        ASSERT_EQ(stat(path.c_str(), &status), 0) << path;
        EXPECT_EQ(status.st_mode, mode_t{S_IFDIR | 0755}) << path;
    }
    EXPECT_EQ(failures(), Lines{});
}

TEST_F(AgentLife, LeavesDirectoriesThatAreThereAsTheyAre) {
    fs::create_directories(directory());
    ASSERT_EQ(chmod(directory().c_str(), 0700), 0);
    start();

    struct stat status {};

    ASSERT_EQ(stat(directory().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFDIR | 0700});
}

TEST_F(AgentLife, EndsInOrderWithEitherSignal) {
    for (const int number : {SIGTERM, SIGINT}) {
        start();
        EXPECT_EQ(agent().notifications(), Lines{"READY=1"});
        agent().signal(number);
        const int status = agent().ended();
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0);
        EXPECT_EQ(agent().notifications(), (Lines{"READY=1", "STOPPING=1"}));
        EXPECT_TRUE(traced("5 closeAllFd: "));
        EXPECT_EQ(failures(), Lines{});
    }
}

TEST_F(AgentLife, KeepsTheKeysAfterItsEnd) {
    start();
    write(file("kept"), certificate("kept"));
    const key_serial_t key = recorded("kept");
    stop();
    EXPECT_EQ(Keyring::named(".ima").keys(), std::vector<key_serial_t>{key});
}

TEST_F(AgentLife, LoadsWhatIsMissingAtAReload) {
    start();
    write(file("lost"), certificate("lost"));
    write(file("kept"), certificate("kept"));
    const key_serial_t lost = recorded("lost");
    const key_serial_t kept = recorded("kept");
    Keyring::named(".ima").unlink(lost);
    reload();
    EXPECT_TRUE(holdsOnly({"kept", "lost"}));
    EXPECT_EQ(Keyring::named(".ima").keyOf(description("kept")), kept);
    EXPECT_EQ(calls(), (Lines{"loadFile lost", "loadFile kept", "loadFile lost"}));
    const Lines& told = agent().notifications();
    ASSERT_EQ(told.size(), 4U);
    EXPECT_EQ(told[1], "RELOADING=1");
    EXPECT_TRUE(told[2].starts_with("MONOTONIC_USEC="));
    fence();
}

TEST_F(AgentLife, WatchesNewDirectoriesAfterAReload) {
    start();
    write(file("before"), certificate("before"));
    recorded("before");
    fs::remove_all("/etc/keys");
    EXPECT_TRUE(holdsOnly({}));
    reload();
    write(file("after"), certificate("after"));
    EXPECT_NE(recorded("after"), 0);
}

TEST_F(AgentLife, OpensNoMoreDescriptorsWithEachReload) {
    start();
    fence();
    const Lines before = descriptors();
    for (int i = 0; i < 5; ++i) {
        reload();
    }
    fence();
    EXPECT_EQ(descriptors(), before);
}

TEST_F(AgentLife, GoesOnWhereAKilledOneStopped) {
    start();
    write(file("kept"), certificate("kept"));
    write(file("gone"), certificate("gone"));
    const key_serial_t kept = recorded("kept");
    recorded("gone");
    agent().signal(SIGKILL);
    const int status = agent().ended();
    EXPECT_TRUE(WIFSIGNALED(status));

    fs::remove(file("gone"));
    write(file("new"), certificate("new"));
    start();
    // The start never unlinks: a file that went while nobody watched leaves its key.
    EXPECT_TRUE(holdsOnly({"gone", "kept", "new"}));
    EXPECT_EQ(Keyring::named(".ima").keyOf(description("kept")), kept);
    EXPECT_EQ(calls(), Lines{"loadFile new"});
    fs::remove(file("kept"));
    EXPECT_TRUE(holdsOnly({"gone", "new"}));
}

TEST_F(AgentLife, EndsWithoutATraceOfFailureAfterABurst) {
    start();
    constexpr int files = 100;
    for (int i = 0; i < files; ++i) {
        write(file("burst-" + std::to_string(i)), certificate("burst-" + std::to_string(i)));
    }
    EXPECT_TRUE(
        eventually([&] { return Keyring::named(".ima").keys().size() == std::size_t{files}; }));
    recorded("burst-99");
    for (int i = 0; i < files; ++i) {
        fs::remove(file("burst-" + std::to_string(i)));
    }
    EXPECT_TRUE(holdsOnly({}));
    EXPECT_EQ(failures(), Lines{});
    EXPECT_EQ(messages(), Lines{});
}

} // namespace
} // namespace Vestrel::Tests
