// SPDX-License-Identifier: Apache-2.0
// The command line of vestrelctl: help, version, wrong usage, and where the result goes.
#include "ctl/ExitStatus.h"
#include "tests/ctl/Ran.h"
#include "tests/support/Shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <fstream>

namespace Vestrel::Tests {

namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

const std::vector<std::string> verbs{"check", "files",  "install", "keys",   "messages",
                                     "plan",  "remove", "resync",  "status", "trace"};

// The installed program's twin, run by a shell.
Ended ctlProcess(const std::string& arguments) {
    return shell(VESTREL_CTL " " + arguments);
}

int statusOf(const std::string& arguments) {
    return ctlProcess(arguments).status;
}

TEST(CtlCommandLine, HelpNamesEveryVerbAndEndsWithStatusZero) {
    const Ran ran = ctl({"--help"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.err, "");
    EXPECT_THAT(ran.out, HasSubstr("--json"));
    for (const std::string& verb : verbs) {
        EXPECT_THAT(ran.out, HasSubstr("\n  " + verb + " "));
    }
}

TEST(CtlCommandLine, EveryVerbHasAHelpOfItsOwn) {
    for (const std::string& verb : verbs) {
        const Ran ran = ctl({verb, "--help"});
        EXPECT_EQ(ran.status, 0) << verb;
        EXPECT_THAT(ran.out, HasSubstr("vestrelctl " + verb));
    }
}

TEST(CtlCommandLine, VersionIsOneLineAndEndsWithStatusZero) {
    const Ran ran = ctl({"--version"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "vestrelctl " VESTREL_VERSION "\n");
}

struct WrongLine {
    Words words;
    std::string named; // in the explanation: what is wrong, as it was typed, or what is missing
};

class WrongCtlUsage : public testing::TestWithParam<WrongLine> {};

TEST_P(WrongCtlUsage, IsExplainedOnStderrAndEndsWithStatusTwo) {
    const Ran ran = ctl(GetParam().words);
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, HasSubstr(GetParam().named));
}

INSTANTIATE_TEST_SUITE_P(
    CtlCommandLine, WrongCtlUsage,
    testing::Values(WrongLine{{}, "A subcommand is required"},
                    WrongLine{{"--json"}, "A subcommand is required"},
                    WrongLine{{"frobnicate"}, "not expected: frobnicate\n"},
                    WrongLine{{"help"}, "not expected: help\n"},
                    WrongLine{{"--json", "frobnicate", ".ima"}, "not expected: frobnicate .ima\n"},
                    WrongLine{{"--unknown"}, "not expected: --unknown\n"},
                    WrongLine{{"messages", "--unknown"}, "not expected: --unknown\n"},
                    WrongLine{{"check"}, "KEYRING is required"},
                    WrongLine{{"check", ".ima"}, "FILE is required"},
                    WrongLine{{"check", ".other", "file"}, "KEYRING: .other is none"},
                    WrongLine{{"check", "file.der", ".ima"}, "KEYRING: file.der is none"},
                    WrongLine{{"check", "--wait", "3", ".ima", "file"}, "not expected: --wait\n"},
                    WrongLine{{"check", ".ima", "file", "--issuer"}, "--issuer"},
                    WrongLine{{"install", ".ima", "file", "--wait", "-1"}, "--wait: Value -1 "},
                    WrongLine{{"install", ".ima", "file", "--wait", "soon"}, "soon"},
                    WrongLine{{"install", ".ima", "file", "--wait", "3601"}, "--wait: Value 3601 "},
                    WrongLine{{"install", ".ima", "file", "--wait", "nan"}, "--wait: Value nan "},
                    WrongLine{{"remove", ".ima", "name", "--wait=-NaN"}, "--wait: Value -NaN "},
                    WrongLine{{"remove", ".ima"}, "NAME is required"},
                    WrongLine{{"remove", ".ima", "../name"}, "NAME: ../name is not the name"},
                    WrongLine{{"plan", "word"}, "not expected: word\n"},
                    WrongLine{{"plan", "check", ".ima", "file"}, "not expected: check .ima file\n"},
                    WrongLine{{"keys", "none"}, "KEYRING: none is none"},
                    WrongLine{{"files", ".ima", "more"}, "not expected: more\n"},
                    WrongLine{{"status", "word"}, "not expected: word\n"}),
    [](const auto& test) { return "line" + std::to_string(test.index); });

TEST(CtlCommandLine, AnOptionWithOneValueIsNotShownWithMore) {
    for (const char* const verb : {"check", "install", "plan"}) {
        EXPECT_THAT(ctl({verb, "--help"}).out, HasSubstr("--issuer FILE  ")) << verb;
    }
}

TEST(CtlCommandLine, JsonMayStandBeforeAndBehindTheVerb) {
    EXPECT_EQ(ctl({"--json", "messages"}).out, ctl({"messages", "--json"}).out);
}

TEST(CtlProcess, EndsWithTheStatusOfTheVerb) {
    EXPECT_EQ(statusOf("messages >/dev/null"), 0);
    EXPECT_EQ(statusOf("messages NO_SUCH_MESSAGE 2>/dev/null"), 1);
    EXPECT_EQ(statusOf("frobnicate 2>/dev/null"), 2);
}

TEST(CtlProcess, FailsWhenItsResultCannotBeWritten) {
    if (!std::ofstream("/dev/full")) {
        GTEST_SKIP() << "there is no /dev/full";
    }
    for (const std::string arguments :
         {"--help", "--version", "check --help", "messages", "messages --json",
          "check .ima /dev/null", "install .ima /dev/null", "remove .ima none", "plan",
          "plan --json", "status", "status --json", "keys", "files"}) {
        const Ended ended = ctlProcess(arguments + " 2>&1 >/dev/full");
        EXPECT_EQ(ended.status, 1) << arguments;
        EXPECT_THAT(ended.output, HasSubstr("vestrelctl: the result could not be written\n"))
            << arguments;
    }
}

TEST(ExitStatus, GivesTheGraverOfTwo) {
    const std::array gravest{ExitStatus::failed, ExitStatus::refused,   ExitStatus::unknown,
                             ExitStatus::late,   ExitStatus::unhealthy, ExitStatus::done};
    for (std::size_t i = 0; i < gravest.size(); ++i) {
        for (std::size_t j = i; j < gravest.size(); ++j) {
            EXPECT_EQ(worse(gravest[i], gravest[j]), gravest[i]);
            EXPECT_EQ(worse(gravest[j], gravest[i]), gravest[i]);
        }
    }
}

} // namespace

} // namespace Vestrel::Tests
