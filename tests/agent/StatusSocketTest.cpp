// SPDX-License-Identifier: Apache-2.0
// Tests the status socket of the agent as a process.
#include "agent/Agent.h"
#include "tests/agent/AgentProcess.h"
#include "tests/support/LineClient.h"
#include "tests/support/Memory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <csignal>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

class StatusSocket : public testing::Test {
protected:
    ~StatusSocket() override {
        fs::remove_all("/etc/keys");
        fs::remove_all(Vestrel::Agent::statusDirectory);
    }

    static Json ask(const std::string& request) {
        LineClient client(Vestrel::Agent::statusSocket);
        return Json::parse(client.ask(request), nullptr, false);
    }

    static mode_t modeOf(const char* path) {
        struct stat status {};

        EXPECT_EQ(stat(path, &status), 0) << path;
        return status.st_mode & 07777U;
    }

    static void ready(AgentProcess& agent) { EXPECT_EQ(agent.notification(), "READY=1"); }
};

TEST_F(StatusSocket, IsServedFromReadinessOn) {
    AgentProcess agent({});
    ready(agent);
    const Json reply = ask(R"({"method":"Status"})");
    EXPECT_EQ(reply["parameters"]["agent"]["version"], VESTREL_VERSION);
    EXPECT_EQ(reply["parameters"]["agent"]["pid"], agent.pid());
}

TEST_F(StatusSocket, IsForItsOwnerOnlyInADirectoryThatTheAgentMakes) {
    AgentProcess agent({.umask = 0});
    ready(agent);
    EXPECT_EQ(modeOf(Vestrel::Agent::statusSocket), 0600U);
    EXPECT_EQ(modeOf(Vestrel::Agent::statusDirectory), 0755U);
}

TEST_F(StatusSocket, GoesWithTheAgent) {
    AgentProcess agent({});
    ready(agent);
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0);
    EXPECT_FALSE(fs::exists(Vestrel::Agent::statusSocket));
}

TEST_F(StatusSocket, OfAKilledAgentIsReplaced) {
    {
        AgentProcess killed({});
        ready(killed);
        killed.signal(SIGKILL);
        killed.wait();
    }
    EXPECT_TRUE(fs::exists(Vestrel::Agent::statusSocket));
    AgentProcess agent({});
    ready(agent);
    EXPECT_EQ(ask(R"({"method":"Status"})")["parameters"]["agent"]["pid"], agent.pid());
}

TEST_F(StatusSocket, OfARunningAgentIsLeftToItAndTheOtherOneSaysSo) {
    AgentProcess first({});
    ready(first);
    AgentProcess second({});
    ready(second);
    EXPECT_EQ(ask(R"({"method":"Status"})")["parameters"]["agent"]["pid"], first.pid());
    EXPECT_THAT(second.errLines(), testing::Contains("vestrel-agent: no status socket: " +
                                                     std::string(Vestrel::Agent::statusSocket) +
                                                     ": " + std::strerror(EADDRINUSE)));
}

TEST_F(StatusSocket, IsDoneWithoutWhereItCannotBe) {
    fs::remove_all(Vestrel::Agent::statusDirectory);
    std::ofstream(Vestrel::Agent::statusDirectory) << "a file";
    AgentProcess agent({});
    ready(agent);
    EXPECT_THAT(agent.err(), testing::HasSubstr("vestrel-agent: no status socket: "));
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0);
}

TEST_F(StatusSocket, StaysThroughAReload) {
    AgentProcess agent({});
    ready(agent);
    LineClient client(Vestrel::Agent::statusSocket);
    EXPECT_NE(client.ask(R"({"method":"Status"})"), "");
    agent.signal(SIGHUP);
    agent.notification();
    ready(agent);
    EXPECT_NE(client.ask(R"({"method":"Status"})"), "");
}

TEST_F(StatusSocket, ResyncRebuildsTheStateMachine) {
    AgentProcess agent({.arguments = {"--trace", "5"}});
    ready(agent);
    EXPECT_TRUE(ask(R"({"method":"Resync"})")["parameters"]["differences"].is_array());
    const auto lines = agent.errLines();
    EXPECT_EQ(std::ranges::count(lines, "IntegrityKeyringSm 5 handleInitialized: "), 2);
}

TEST_F(StatusSocket, TraceGivesTheRingOfTheAgent) {
    AgentProcess agent({.arguments = {"--trace", "5"}});
    ready(agent);
    const Json events = ask(R"({"method":"Trace"})")["parameters"]["events"];
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events[0]["handle"], "IntegrityKeyringSm");
}

// A thousand clients at once that never read, and one with a line that is far too long.
void hostileClients() {
    std::deque<LineClient> clients;
    for (int i = 0; i < 1000; ++i) {
        clients.emplace_back(Vestrel::Agent::statusSocket);
        ASSERT_TRUE(clients.back().isConnected()) << i;
        clients.back().sendSome("{\"method\":\"\xff\xfe\"}\n");
        clients.back().sendSome("{\"method\":\"Status\"}\n{\"method\":\"Trace\"}\nhalf a li");
    }
    LineClient flood(Vestrel::Agent::statusSocket);
    EXPECT_FALSE(flood.send(std::string(1U << 20U, '[')));
    EXPECT_THAT(flood.line(), testing::HasSubstr("LineTooLong"));
}

TEST_F(StatusSocket, OutlivesHostileClientsAndTheirNumber) {
    AgentProcess agent({});
    ready(agent);
    hostileClients();
    EXPECT_EQ(ask(R"({"method":"Status"})")["parameters"]["agent"]["pid"], agent.pid());
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0);
}

// The first thousand show how much is needed; three thousand more may leave 128 bytes each behind.
TEST_F(StatusSocket, HasNoMemoryForMoreHostileClientsThanItServes) {
    if (!isMemoryReused) {
        GTEST_SKIP() << "sanitizers keep what is freed";
    }
    AgentProcess agent({});
    ready(agent);
    hostileClients();
    ask(R"({"method":"Status"})");
    const std::size_t needed = memoryOf(agent.pid(), "VmHWM");
    ASSERT_NE(needed, 0U);
    for (int i = 0; i < 3; ++i) {
        hostileClients();
    }
    EXPECT_EQ(ask(R"({"method":"Status"})")["parameters"]["agent"]["pid"], agent.pid());
    EXPECT_LE(memoryOf(agent.pid(), "VmHWM"), needed + 3000 * std::size_t{128});
}

} // namespace

} // namespace Vestrel::Tests
