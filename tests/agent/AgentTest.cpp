// SPDX-License-Identifier: Apache-2.0
// Tests the life of the agent on a host whose kernel has not all of the keyrings.
#include "keymodel/IntegrityConstants.h"
#include "keyring/IntegrityKeyringSm.h"
#include "tests/agent/AgentProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <keyutils.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

constexpr int anyoneMayEnter = 0755;

std::string directory(const char* keyring) {
    return std::string(IntegrityConstants().keyringPathPrefix(keyring).view());
}

int modeOf(const std::string& path) {
    struct stat status {};

    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return static_cast<int>(status.st_mode & 07777);
}

// The trace lines of the keyrings that this kernel does not have.
std::vector<std::string> missingKeyrings() {
    std::vector<std::string> lines;
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        if (find_key_by_type_and_desc("keyring", name, 0) == -1) {
            lines.push_back(std::string("IntegrityKeyringSm 1 createWatcher: "
                                        "find_key_by_type_and_desc: ") +
                            std::strerror(errno) + ", keyring " + name);
        }
    }
    return lines;
}

std::vector<std::string> lookUpLines(const AgentProcess& agent) {
    std::vector<std::string> lines = agent.errLines();
    std::erase_if(lines, [](const std::string& line) {
        return line.find(" find_key_by_type_and_desc: ") == std::string::npos;
    });
    return lines;
}

// What the process has open, but for sockets: the one of a notification just received may still be.
std::multiset<std::string> openOn(pid_t process) {
    std::multiset<std::string> all;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
        std::error_code gone;
        const std::string target = fs::read_symlink(entry.path(), gone).string();
        const std::string kind = target.substr(0, target.find('['));
        if (!gone && kind != "socket:") {
            all.insert(kind);
        }
    }
    return all;
}

class Agent : public testing::Test {
protected:
    ~Agent() override { fs::remove_all("/etc/keys"); }

    // Runs the agent until it is ready and ends it again.
    static void runOnce(AgentProcess& agent) {
        EXPECT_EQ(agent.notification(), "READY=1");
        agent.signal(SIGTERM);
        EXPECT_EQ(agent.wait(), 0);
    }
};

using AgentDirectories = Agent;
using AgentTrace = Agent;

TEST_F(Agent, SaysThatItIsReadyAndThatItStops) {
    AgentProcess agent({});
    EXPECT_EQ(agent.notification(), "READY=1");
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.notification(), "STOPPING=1");
    EXPECT_EQ(agent.wait(), 0);
}

TEST_F(Agent, IsReadyOnlyWhenEveryKeyringHasBeenSetUp) {
    AgentProcess agent({.arguments = {"--trace", "5"}});
    EXPECT_EQ(agent.notification(), "READY=1");
    EXPECT_THAT(agent.errLines(),
                testing::Contains("IntegrityKeyringSm 5 createWatcher: .machine"));
}

TEST_F(Agent, EndsWithStatusZeroOnSigint) {
    AgentProcess agent({});
    EXPECT_EQ(agent.notification(), "READY=1");
    agent.signal(SIGINT);
    EXPECT_EQ(agent.wait(), 0);
}

TEST_F(Agent, StaysInTheForeground) {
    AgentProcess agent({});
    EXPECT_EQ(agent.notification(), "READY=1");
    EXPECT_EQ(kill(agent.pid(), 0), 0) << "the process that was started";
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0);
}

TEST_F(Agent, StartsWithoutTheKeyringsAndTracesEachOne) {
    const std::vector<std::string> expected = missingKeyrings();
    if (expected.empty()) {
        GTEST_SKIP() << "this kernel has all four keyrings";
    }
    AgentProcess agent({});
    runOnce(agent);
    EXPECT_EQ(lookUpLines(agent), expected);
}

TEST_F(Agent, SighupReloadsEverythingAndSaysSo) {
    AgentProcess agent({.arguments = {"--trace", "5"}});
    EXPECT_EQ(agent.notification(), "READY=1");
    agent.signal(SIGHUP);
    EXPECT_THAT(agent.notification(), testing::MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+"));
    EXPECT_EQ(agent.notification(), "READY=1");
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.notification(), "STOPPING=1");
    EXPECT_EQ(agent.wait(), 0);
    const auto lines = agent.errLines();
    const auto end = std::ranges::find(lines, "IntegrityKeyringSm 5 handleDelete: ");
    ASSERT_NE(end, lines.end());
    EXPECT_NE(std::find(end, lines.end(), "IntegrityKeyringSm 5 handleInitialized: "), lines.end())
        << "the old state machine ends before the new one starts";
    EXPECT_EQ(std::ranges::count(lines, "IntegrityKeyringSm 5 handleInitialized: "), 2);
    EXPECT_EQ(std::ranges::count(lines, "IntegrityKeyringSm 5 handleDelete: "), 2);
}

TEST_F(Agent, CanBeReloadedAgainAndAgain) {
    AgentProcess agent({});
    EXPECT_EQ(agent.notification(), "READY=1");
    const auto before = openOn(agent.pid());
    for (int i = 0; i < 5; ++i) {
        agent.signal(SIGHUP);
        agent.notification();
        EXPECT_EQ(agent.notification(), "READY=1");
    }
    EXPECT_EQ(openOn(agent.pid()), before) << "no descriptor is lost";
}

TEST_F(Agent, FeedsTheWatchdogThatTheServiceManagerAsksFor) {
    AgentProcess agent({.environment = {{"WATCHDOG_USEC", "200000"}}});
    std::vector<std::string> seen{agent.notification(), agent.notification()};
    EXPECT_THAT(seen, testing::UnorderedElementsAre("READY=1", "WATCHDOG=1"));
    EXPECT_EQ(agent.notification(), "WATCHDOG=1");
}

TEST_F(Agent, FeedsNoWatchdogUnasked) {
    AgentProcess agent({});
    EXPECT_EQ(agent.notification(), "READY=1");
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.notification(), "STOPPING=1");
}

TEST_F(Agent, EndsWithStatusOneAndTheReasonWhenItCannotStart) {
    AgentProcess agent({.environment = {{"WATCHDOG_USEC", "not a number"}}});
    EXPECT_EQ(agent.wait(), 1);
    ASSERT_FALSE(agent.errLines().empty());
    EXPECT_EQ(agent.errLines().back(),
              std::string("vestrel-agent: sd_event_set_watchdog: ") + std::strerror(EINVAL));
}

TEST_F(AgentDirectories, AreCreatedForEveryKeyringWhateverTheUmask) {
    for (const mode_t mask : {077U, 0U, 0777U}) {
        AgentProcess agent({.umask = mask});
        runOnce(agent);
        EXPECT_EQ(modeOf("/etc/keys"), anyoneMayEnter);
        for (const char* const name : IntegrityKeyringSm::keyringNames) {
            EXPECT_EQ(modeOf(directory(name)), anyoneMayEnter);
        }
        fs::remove_all("/etc/keys");
    }
}

TEST_F(AgentDirectories, ThatArePresentStayAsTheyAre) {
    fs::create_directories("/etc/keys/ima");
    fs::permissions("/etc/keys/ima", fs::perms(0700));
    std::ofstream("/etc/keys/ima/notes.txt") << "kept";
    AgentProcess agent({});
    runOnce(agent);
    EXPECT_EQ(modeOf("/etc/keys/ima"), 0700);
    EXPECT_TRUE(fs::exists("/etc/keys/ima/notes.txt"));
    EXPECT_EQ(modeOf("/etc/keys/machine"), anyoneMayEnter);
}

TEST_F(AgentDirectories, ThatAreMissingAreCreatedAgainByAReload) {
    AgentProcess agent({});
    EXPECT_EQ(agent.notification(), "READY=1");
    fs::remove("/etc/keys/ima");
    agent.signal(SIGHUP);
    agent.notification();
    EXPECT_EQ(agent.notification(), "READY=1");
    EXPECT_EQ(modeOf("/etc/keys/ima"), anyoneMayEnter);
}

TEST_F(AgentDirectories, ThatCannotBeCreatedAreNamedAndNotFatal) {
    std::ofstream("/etc/keys") << "a file";
    AgentProcess agent({});
    runOnce(agent);
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        EXPECT_THAT(agent.errLines(),
                    testing::Contains("vestrel-agent: cannot create certificate directory " +
                                      directory(name) + ": " + std::strerror(ENOTDIR)));
    }
}

TEST_F(AgentTrace, LevelZeroIsSilent) {
    AgentProcess agent({.arguments = {"--trace", "0"}});
    runOnce(agent);
    EXPECT_EQ(agent.err(), "");
    EXPECT_EQ(agent.out(), "");
}

TEST_F(AgentTrace, LevelFiveShowsProgressAsHandleLevelAndText) {
    AgentProcess agent({.arguments = {"--trace", "5"}});
    runOnce(agent);
    EXPECT_THAT(agent.errLines(), testing::Contains("IntegrityKeyringSm 5 handleInitialized: "));
    EXPECT_THAT(agent.errLines(), testing::Contains("IntegrityKeyringSm 5 createWatcher: .ima"));
    const std::regex form("[A-Za-z]+ [0-5] [A-Za-z_~]+: .*");
    for (const std::string& line : agent.errLines()) {
        EXPECT_TRUE(std::regex_match(line, form)) << line;
    }
    EXPECT_EQ(agent.out(), "");
}

TEST_F(AgentTrace, WithoutAnOptionShowsFailuresOnly) {
    AgentProcess agent({});
    runOnce(agent);
    for (const std::string& line : agent.errLines()) {
        EXPECT_NE(line.find(" 1 "), std::string::npos) << line;
        EXPECT_EQ(line.find(" 5 "), std::string::npos) << line;
    }
}

} // namespace

} // namespace Vestrel::Tests
