// SPDX-License-Identifier: Apache-2.0
// Tests the agent's way from a kernel line on its socket to a log message.
#include "platform/zell/OwnedFd.h"
#include "tests/agent/AgentProcess.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <csignal>
#include <filesystem>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

const std::string socketPath = "/var/run/IMAKernelMessages";

constexpr const char* kernelLine =
    "kernel: [   42.767325][   T10] audit: type=1800 audit(1795226825.572:11): pid=115 uid=0 "
    "auid=4294967295 ses=4294967295 op=appraise_data cause=missing-hash comm=\"vmt\" "
    "name=\"/t/nohash\" dev=\"rootfs\" ino=392 res=0 errno=0";

constexpr const char* logLine = "VESTREL_INTEGRITY: Integrity error of type AUDIT_INTEGRITY_DATA "
                                "(missing-hash), for file /t/nohash, invoked by vmt";

struct stat statusOf(const std::string& path) {
    struct stat status {};

    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status;
}

void sendToTheAgent(std::string_view line) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    const Zell::OwnedFd sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(sendto(sender.get(), line.data(), line.size(), 0,
                     reinterpret_cast<const sockaddr*>(&address), sizeof address),
              static_cast<ssize_t>(line.size()));
}

class KernelMessages : public testing::Test {
protected:
    ~KernelMessages() override { fs::remove_all("/etc/keys"); }
};

TEST_F(KernelMessages, BecomeLogMessagesOnStderr) {
    AgentProcess agent({.arguments = {"--log", "stderr", "--trace", "0"}});
    EXPECT_EQ(agent.notification(), "READY=1");
    sendToTheAgent(kernelLine);
    EXPECT_TRUE(agent.errHas(logLine)) << agent.err();
    EXPECT_EQ(agent.errLines().size(), 1U) << agent.err();
}

TEST_F(KernelMessages, AreReceivedByAnAgentThatWasStartedWithoutInput) {
    AgentProcess agent({.arguments = {"--log", "stderr"}, .hasInput = false});
    EXPECT_EQ(agent.notification(), "READY=1");
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(agent.pid()) + "/fd/0"), "/dev/null");
    sendToTheAgent(kernelLine);
    EXPECT_TRUE(agent.errHas(logLine)) << agent.err();
}

TEST_F(KernelMessages, AreStillReceivedAfterAReload) {
    AgentProcess agent({.arguments = {"--log", "stderr"}});
    EXPECT_EQ(agent.notification(), "READY=1");
    const auto before = statusOf(socketPath);
    agent.signal(SIGHUP);
    agent.notification();
    EXPECT_EQ(agent.notification(), "READY=1");
    EXPECT_EQ(statusOf(socketPath).st_ino, before.st_ino) << "the socket stays through it";
    sendToTheAgent(kernelLine);
    EXPECT_TRUE(agent.errHas(logLine)) << agent.err();
}

// Whoever may write to the socket may forge messages.
TEST_F(KernelMessages, AreTakenFromTheOwnerOnlyWhateverTheUmask) {
    for (const mode_t mask : {0U, 022U}) {
        AgentProcess agent({.umask = mask});
        EXPECT_EQ(agent.notification(), "READY=1");
        const auto status = statusOf(socketPath);
        EXPECT_TRUE(S_ISSOCK(status.st_mode));
        EXPECT_EQ(status.st_mode & 07777, 0600U);
        agent.signal(SIGTERM);
        EXPECT_EQ(agent.wait(), 0);
    }
}

TEST_F(KernelMessages, HaveNoSocketLeftWhenTheAgentHasEnded) {
    AgentProcess agent({});
    EXPECT_EQ(agent.notification(), "READY=1");
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(socketPath));
}

} // namespace

} // namespace Vestrel::Tests
