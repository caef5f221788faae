// SPDX-License-Identifier: Apache-2.0
// Tests the agent's command line: every option, and every exit status that it leads to.
#include "agent/Options.h"
#include "tests/agent/AgentProcess.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace Vestrel::Tests {

namespace {

using Arguments = std::vector<std::string>;

std::optional<AgentOptions> read(Arguments arguments) {
    arguments.insert(arguments.begin(), "vestrel-agent");
    std::vector<char*> words;
    for (std::string& argument : arguments) {
        words.push_back(argument.data());
    }
    int status = -1;
    auto options = agentOptions(static_cast<int>(words.size()), words.data(), status);
    EXPECT_EQ(status, -1) << "untouched when the agent is to run";
    return options;
}

class WrongUsage : public testing::TestWithParam<Arguments> {};

TEST(CommandLine, WithoutOptionsTracesFailuresAndChoosesTheLogItself) {
    const auto options = read({});
    ASSERT_TRUE(options);
    EXPECT_EQ(options->traceLevel, 1);
    EXPECT_EQ(options->log, LogTarget::automatic);
    EXPECT_EQ(options->driftInterval, 300);
}

TEST(CommandLine, TakesDriftIntervalsUpToADay) {
    EXPECT_EQ(read({"--drift-interval", "0"})->driftInterval, 0);
    EXPECT_EQ(read({"--drift-interval", "86400"})->driftInterval, 86400);
}

TEST(CommandLine, TakesEveryTraceLevel) {
    for (int level = 0; level <= 5; ++level) {
        const auto options = read({"--trace", std::to_string(level)});
        ASSERT_TRUE(options);
        EXPECT_EQ(options->traceLevel, level);
    }
    EXPECT_EQ(read({"--trace=3"})->traceLevel, 3);
}

TEST(CommandLine, TakesEveryPlaceForLogMessages) {
    EXPECT_EQ(read({"--log", "auto"})->log, LogTarget::automatic);
    EXPECT_EQ(read({"--log", "journal"})->log, LogTarget::journal);
    EXPECT_EQ(read({"--log", "syslog"})->log, LogTarget::syslog);
    EXPECT_EQ(read({"--log", "stderr"})->log, LogTarget::standardError);
    EXPECT_EQ(read({"--log=stderr", "--trace=0"})->log, LogTarget::standardError);
}

TEST(CommandLine, HelpNamesEveryOptionAndEndsWithStatusZero) {
    AgentProcess agent({.arguments = {"--help"}});
    EXPECT_EQ(agent.wait(), 0);
    for (const char* const option : {"vestrel-agent", "--help", "--version", "--trace", "--log",
                                     "auto", "journal", "syslog", "stderr"}) {
        EXPECT_NE(agent.out().find(option), std::string::npos) << option;
    }
    EXPECT_EQ(agent.err(), "");
    EXPECT_FALSE(std::filesystem::exists("/etc/keys")) << "nothing was started";
}

TEST(CommandLine, VersionIsOneLineAndEndsWithStatusZero) {
    AgentProcess agent({.arguments = {"--version"}});
    EXPECT_EQ(agent.wait(), 0);
    EXPECT_EQ(agent.out(), "vestrel-agent " VESTREL_VERSION "\n");
    EXPECT_EQ(agent.err(), "");
}

TEST(CommandLine, FailsWhenItsTextCannotBeWritten) {
    if (!std::ofstream("/dev/full")) {
        GTEST_SKIP() << "there is no /dev/full";
    }
    for (const char* const option : {"--help", "--version"}) {
        AgentProcess agent({.arguments = {option}, .out = "/dev/full"});
        EXPECT_EQ(agent.wait(), 1) << option;
        EXPECT_EQ(agent.err(), "vestrel-agent: the text could not be written\n") << option;
    }
}

TEST_P(WrongUsage, IsExplainedOnStderrAndEndsWithStatusTwo) {
    AgentProcess agent({.arguments = GetParam()});
    EXPECT_EQ(agent.wait(), 2);
    EXPECT_EQ(agent.out(), "");
    EXPECT_NE(agent.err(), "");
    EXPECT_FALSE(std::filesystem::exists("/etc/keys")) << "nothing was started";
}

INSTANTIATE_TEST_SUITE_P(
    CommandLine, WrongUsage,
    testing::Values(Arguments{"--unknown"}, Arguments{"word"}, Arguments{"--trace"},
                    Arguments{"--trace", "6"}, Arguments{"--trace", "-1"},
                    Arguments{"--trace", "five"}, Arguments{"--trace", "1.5"},
                    Arguments{"--trace", ""}, Arguments{"--trace", "99999999999"},
                    Arguments{"--log"}, Arguments{"--log", "file"}, Arguments{"--log", ""},
                    Arguments{"--log", "AUTO"}, Arguments{"--log", "0"},
                    Arguments{"--log", "stderr", "word"}, Arguments{"--drift-interval"},
                    Arguments{"--drift-interval", "-1"}, Arguments{"--drift-interval", "86401"},
                    Arguments{"--drift-interval", "often"}));

} // namespace

} // namespace Vestrel::Tests
